#pragma once

#include <string>

namespace keltipc {

/// Waits until `device` is a character device that this process may open; `access` is R_OK or W_OK. Says on standard
/// error what it waits for. False after that many seconds. Throws InputError for a path that is something else.
bool wait_for_device(const std::string& device, int access, unsigned int seconds);

}  // namespace keltipc
