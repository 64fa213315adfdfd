#pragma once

/// Marks the public names of libkeltipc; all other names are hidden.
#define KELTIPC_EXPORT __attribute__((visibility("default")))

/// Keeps a private member of an exported class out of the binary interface.
#define KELTIPC_NO_EXPORT __attribute__((visibility("hidden")))
