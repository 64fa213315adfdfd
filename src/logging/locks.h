#pragma once

#include <mutex>

/// The library's locks. fork(2) waits for both, so that a child finds them free whatever the other threads were at.
/// Who takes both takes `output_mutex` first: a sink may ask for modules.
namespace ecu::vorn::logging {

/// Held while the sink runs or is replaced.
std::mutex& output_mutex();

/// Whether the calling thread is running the sink, and so holds `output_mutex`.
bool& runs_sink();

std::mutex& registry_mutex();

}  // namespace ecu::vorn::logging
