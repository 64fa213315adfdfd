#pragma once

#include <string>

#include "ipc/export.h"

/// What a queuing port is, as far as stat(2) can tell. Both leave `errno` as the system call set it, log nothing
/// and may be called from any thread.
namespace ecu::vorn::ipc::utils {

/// True when `path` names a character device, through symbolic links too.
KELTIPC_EXPORT bool is_char_dev(const std::string& path);

/// True when `fd` is open on a character device whose node still has a name in the file system. A node that was
/// removed leaves the descriptor usable but cut off: its link count is 0.
KELTIPC_EXPORT bool is_queuing_port_ok(int fd);

}  // namespace ecu::vorn::ipc::utils
