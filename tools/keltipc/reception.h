#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ipc/ipc_signal.h"

namespace keltipc {

/// One message of a port.
struct Frame {
  bool is_short = false;  ///< less than a frame: all of it is in `payload`
  std::uint32_t id = 0;
  std::uint8_t status = 0;
  std::uint16_t chunk = 0;
  std::uint16_t total_size = 0;
  std::vector<char> payload;
  std::string mark;  ///< what is special or wrong about it; usually empty
};

/// Puts a port's frames together with the library's own processor, as an application would, and counts what the
/// processor does not report: frames that are missing, repeated, mixed up or short.
class Reception {
 public:
  /// Takes a whole frame, and returns the signal that it completes, if any.
  using Processor = std::function<std::optional<ecu::vorn::ipc::IpcSignal>(const char* frame)>;

  Reception(std::size_t frame_bytes, std::uint32_t frame_start_id);

  /// Takes what read(2) gave, and returns the signal that it completes, if any. `frame` then describes it.
  std::optional<ecu::vorn::ipc::IpcSignal> take(const char* bytes, std::size_t size);
  const Frame& frame() const { return current; }

  /// Drops a half received signal, which counts as incomplete, and waits for a start frame again. The counts go on.
  void restart();

  /// What came, and what is wrong with it: a sentence or two.
  std::vector<std::string> summary(const std::string& device) const;

  /// "1 gap, 2 repeats"; empty if nothing is wrong.
  std::string faults() const;

  struct Counts {
    std::uint64_t signals = 0;
    std::uint64_t bytes = 0;
    std::uint64_t frames = 0;
    std::uint64_t starts = 0;
    std::uint64_t before_start = 0;
    std::uint64_t incomplete = 0;
    std::uint64_t gaps = 0;
    std::uint64_t repeats = 0;
    std::uint64_t steps_back = 0;
    std::uint64_t mixed = 0;
    std::uint64_t short_messages = 0;
    std::uint64_t swallowed =
        0;  ///< came whole, and the processor took its bytes for those that a signal before lacked
    std::uint64_t doubtful = 0;
  };
  const Counts& counts() const { return count; }

 private:
  /// The signal of which the last frame was a part.
  struct Sequence {
    std::uint32_t id;
    std::uint16_t total_size;
    std::uint16_t chunk;
    bool is_whole_so_far;
  };

  void parse(const char* bytes);
  std::string check();
  std::string check_start(std::uint64_t stamp);
  std::string check_place();
  std::string check_first_chunk();
  std::string check_next_chunk();
  std::string note_short(std::size_t size);
  bool is_within_signal() const;
  bool has_come_whole() const;
  void begin_signal();
  void give_up_signal();

  std::size_t frame_size;
  std::uint32_t start_id;
  Processor process;
  Frame current;
  bool has_started = false;
  std::optional<Sequence> last;
  bool in_doubt = false;
  Counts count;
  std::string short_message;
};

}  // namespace keltipc
