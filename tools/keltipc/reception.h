#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "frame.h"
#include "frame_order.h"
#include "ipc/ipc_signal.h"
#include "loss_detector.h"
#include "signal_text.h"

namespace keltipc {

/// Puts a port's frames together with the library's own processor, as an application would, and notes what the
/// processor does not report: what was lost, and what is wrong.
class Reception {
 public:
  /// Takes a whole frame, and returns the signal that it completes, if any.
  using Processor = std::function<std::optional<ecu::vorn::ipc::IpcSignal>(const char* frame)>;

  Reception(std::size_t frame_bytes, std::uint32_t frame_start_id, std::vector<Filter> signal_filters);

  /// Takes what read(2) gave, and returns the signal that it completes, if it passes the filters. `frame` then
  /// describes the message.
  std::optional<ecu::vorn::ipc::IpcSignal> take(const char* bytes, std::size_t size);
  const Frame& frame() const { return current; }
  bool passes_filters(std::uint32_t id, std::uint8_t status) const { return passes(filters, id, status); }

  /// Nothing more comes, which cuts off a half received signal.
  void end();

  /// Waits for a start frame again. The counts go on.
  void restart();

  /// What came, and what was lost or wrong: a line or two for standard error.
  std::string report(const std::string& device) const;

  /// "2 signals; 1 repetition"; empty if nothing is wrong.
  std::string faults() const;

  /// What was lost or wrong since the last call, in words.
  std::vector<std::string> take_faults() { return losses.take_faults(); }

  /// Whether a signal was lost, or a message had a wrong size.
  bool has_losses() const { return losses.counts().lost + count.wrong_size != 0; }

  /// Those of signals, early and misplaced frames leave out what does not pass the filters.
  struct Counts {
    std::uint64_t signals = 0;
    std::uint64_t bytes = 0;
    std::uint64_t frames = 0;
    std::uint64_t starts = 0;
    std::uint64_t in_place = 0;
    std::uint64_t early = 0;  ///< before the first start frame
    std::uint64_t misplaced = 0;
    std::uint64_t wrong_size = 0;
  };
  const Counts& counts() const { return count; }

 private:
  void note_wrong_size(const char* bytes, std::size_t size);
  void note_start();
  void note_early();
  void note_data(bool is_copy, bool completes);

  std::size_t frame_size;
  std::uint32_t start_id;
  std::vector<Filter> filters;
  Processor process;
  FrameOrder order;
  LossDetector losses;
  Frame current;
  std::vector<char> before;  ///< the message before
  bool has_started = false;
  bool is_early = false;
  Counts count;
  std::string wrong_size;  ///< of the last message that had one
};

}  // namespace keltipc
