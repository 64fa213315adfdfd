#pragma once

#include <array>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "ipc/signal_processor.h"
#include "support/reassembly_model.h"

namespace ecu::vorn::ipc::test {

/// One frame in three bytes. Most values of the first are one identifier's: what disturbs it logs, and takes time.
struct Step {
  std::uint8_t who;   ///< 0..7 the frame start identifier, 8..11 some others
  std::uint8_t size;  ///< modulo 16, the first ten are sizes at which the counting turns
  std::uint8_t fill;  ///< status, and where in a run of noise the payload begins; 0xFF calls `take` as no reader does
};

inline const std::array<char, 4088 + 256> noise = [] {
  std::array<char, 4088 + 256> bytes{};
  std::uint32_t random = 1;
  for (char& byte : bytes) byte = static_cast<char>((random = random * 1664525U + 1013904223U) >> 24U);
  return bytes;
}();

/// A processor beside the model: they must agree on state, result and log lines. Throws std::logic_error where they
/// differ.
template <std::size_t N>
class Reassembly {
 public:
  explicit Reassembly(std::uint32_t start, bool debug_lines = false)
      : model(start), start_id(start), log(lines, "ipc.signalprocessor", debug_lines ? 7 : 6), processor(start) {
    model.notes_debug = debug_lines;
    model.log = &modelled_lines;
  }

  /// Takes a complete signal as the reader does, some a second time, or does not and takes where there is none.
  void process(const Step& step) {
    signal_t_dyn<N> frame = frame_of(step);
    processor.process(std::move(frame));
    model.process(frame);
    agree(static_cast<int>(processor.get_state()) == model.state(), "state");
    const bool as_the_reader = step.fill != 0xFF;
    if ((model.state() == 3) != as_the_reader) return;
    take();
    if (step.fill % 4 == 1) take();
  }

  void compare_lines() {
    agree(lines == modelled_lines, "log lines");
    lines.clear();
    modelled_lines.clear();
  }

  ReassemblyModel<N> model;

 private:
  signal_t_dyn<N> frame_of(const Step& step) const {
    constexpr std::array<std::uint32_t, 4> others = {0, 6, 7, 0xFFFFFFF};
    const std::size_t held = model.held();
    const std::array<std::size_t, 10> sizes = {0, 1, N - 1, N, N + 1, 2 * N, held, held - 1, held + 1, 65535};
    signal_t_dyn<N> frame;
    frame.signal_id = step.who < 8 ? start_id : step.who < 12 ? others[step.who % 4] : 5;
    frame.signal_id |= std::uint32_t{step.fill} << 28U;
    frame.chunk_index = step.fill;
    frame.total_size = static_cast<std::uint16_t>(step.size % 16 < 10 ? sizes[step.size % 16] : step.size * 251U);
    std::memcpy(frame.data, &noise[step.fill], N);
    return frame;
  }

  void take() {
    const auto real = processor.take(), modelled = model.take();
    agree(real.has_value() == modelled.has_value(), "whether there is a signal");
    if (!real) return;
    agree(real->signal_id == modelled->signal_id && real->status == modelled->status, "identifier or status");
    agree(real->sampling_frame == modelled->sampling_frame && real->data == modelled->data, "stamp or bytes");
    ++taken;
  }

  static void agree(bool same, const char* what) {
    if (!same) throw std::logic_error(std::string("processor and model differ in ") + what);
  }

  std::uint32_t start_id;
  Transcript lines, modelled_lines;
  RecordedLog log;

 public:
  SignalProcessor<N> processor;
  std::size_t taken = 0;
};

struct Tally {
  std::size_t frames, signals;
};

/// Bytes as steps. The first chooses the frame start identifier. DEBUG lines take most time, so few steps have them.
template <std::size_t N>
Tally reassemble(const std::uint8_t* bytes, std::size_t size) {
  constexpr std::array<std::uint32_t, 4> start_ids = {0x10, 0, 5, 0xFFFFFFF};
  Reassembly<N> both(start_ids[bytes[0] % 4], size < 64);
  std::size_t frames = 0;
  for (std::size_t at = 1; at + 3 <= size; at += 3, ++frames) {
    // Where the counts have missed each other a start frame ends it in time, else copying is all that is done.
    const bool held_enough = both.model.held() > 3 * 65535;
    both.process({held_enough ? std::uint8_t{0} : bytes[at], bytes[at + 1], bytes[at + 2]});
  }
  both.compare_lines();
  return {frames, both.taken};
}

}  // namespace ecu::vorn::ipc::test
