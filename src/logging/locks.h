#pragma once

#include <mutex>

/// The library's locks. fork(2) takes both first, so that the child process finds them free whatever the parent's
/// other threads were doing. Lock order: `output_mutex`, then `registry_mutex`, because a sink may ask for modules.
namespace ecu::vorn::logging {

/// Held while the sink runs or is replaced.
std::mutex& output_mutex();

/// Whether the calling thread is running the sink, and so holds `output_mutex`.
bool& runs_sink();

std::mutex& registry_mutex();

}  // namespace ecu::vorn::logging
