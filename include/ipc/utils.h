#pragma once

#include <string>

#include "ipc/export.h"

/// Checks of queuing ports with stat(2). They may be called from any thread, log nothing and leave `errno` as the
/// system call set it.
namespace ecu::vorn::ipc::utils {

/// True if `path` names a character device. Follows symbolic links.
KELTIPC_EXPORT bool is_char_dev(const std::string& path);

/// True if `fd` is open on a character device whose node still exists. After the node is removed, its link count is
/// 0. The file descriptor can still be used then; whether anybody receives what is written depends on the driver.
KELTIPC_EXPORT bool is_queuing_port_ok(int fd);

}  // namespace ecu::vorn::ipc::utils
