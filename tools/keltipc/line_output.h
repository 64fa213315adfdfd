#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace keltipc {

/// Standard output, a line at a time: each one has left the process when `write` returns.
class LineOutput {
 public:
  /// Adds the line's end. Throws Ending: a quiet one when nobody reads any longer.
  void write(std::string line);

  /// True when nobody reads any longer. From any thread.
  static bool is_closed();

  /// Lines written. From any thread.
  std::uint64_t count() const { return written; }

  /// How long ago the last line was written, or this object was made. From any thread.
  std::chrono::milliseconds quiet_time() const;

  /// Lets a line that is being written get out whole, for up to half a second; none begins after that. For leaving
  /// the process from another thread.
  void close_for_good();

 private:
  std::mutex busy;
  std::atomic<std::uint64_t> written{0};
  std::atomic<std::chrono::steady_clock::time_point> last{std::chrono::steady_clock::now()};
};

}  // namespace keltipc
