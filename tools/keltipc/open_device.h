#pragma once

#include <string>

#include "descriptor.h"

namespace keltipc {

/// Opens a character device, non-blocking, for O_RDONLY or O_WRONLY. While that fails it says why on standard error
/// and tries again, for that many seconds; then the descriptor is empty. Throws InputError for a path that is
/// something else.
Descriptor open_device(const std::string& device, int access, unsigned int seconds);

/// One attempt. `errno` says why the descriptor is empty.
Descriptor try_to_open_device(const std::string& device, int access);

}  // namespace keltipc
