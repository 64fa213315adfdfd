#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "frame.h"
#include "latest_signals.h"

namespace keltipc {

/// Counts the signals of which a frame came, and which were not put together from exactly their frames. It tells
/// signals apart by identifier and chunk number, beside what the processor makes of them by counting bytes.
///
///     5:0 of 16 bytes, 6:0 and 6:1 of 16 bytes, with 8 bytes a frame
///         ->  2 lost: the processor takes 5:0 and 6:0 for signal 6, and waits for more after 6:1
class LossDetector {
 public:
  explicit LossDetector(std::size_t frame_bytes) : payload_size(frame_bytes - header_size) {}

  /// A frame after the first start frame, which is not a start frame itself. `is_copy`: it equals the message before
  /// it in every byte. `completes`: the processor has completed a signal with it.
  void add(const Frame& frame, bool is_copy, bool completes);

  /// The same for a frame that a filter drops. Its signal does not count, but it can get into another one.
  void add_filtered(bool completes);

  /// Nothing continues the signal that is being received: a start frame came, or nothing more comes.
  void cut_off(const char* reason);

  /// What comes from now on does not continue a signal that was begun before.
  void forget() { latest = {}; }

  struct Counts {
    std::uint64_t lost = 0;         ///< not put together, or not from exactly their frames
    std::uint64_t whole = 0;        ///< put together from exactly their frames
    std::uint64_t repetitions = 0;  ///< frames that came twice
  };
  const Counts& counts() const { return count; }

  /// Something else is wrong, which loses no signal.
  void note(const std::string& fault) { faults.push_back(fault); }

  /// What was lost or wrong since the last call, in words.
  std::vector<std::string> take_faults() { return std::exchange(faults, {}); }

 private:
  /// The frames since the last signal that was completed, or since the start frame.
  enum class Run { empty, one_signal, mixed };

  bool note_chunk(const Frame& frame);
  bool extends_run(const Frame& frame);
  void mix_run(const Frame& frame, bool begins);
  void end_run();
  void lose(std::uint32_t id, const std::string& reason);
  void lose_unclear();

  std::size_t payload_size;
  LatestSignals latest;
  Run run = Run::empty;
  SignalPart running;  ///< the last frame of the run, while all its frames are of one signal
  /// The last frame is the first one of this signal, and came among others: if it is repeated, and the processor has
  /// completed something before, the repetition begins the signal anew.
  std::optional<std::uint32_t> unclear;
  Counts count;
  std::vector<std::string> faults;
};

}  // namespace keltipc
