#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "ipc/signal_processor.h"
#include "support/recorded_log.h"

namespace ecu::vorn::ipc::test {

/// What reassembly must do, written independently of SignalProcessor: it derives the state from facts, and counts
/// the bytes that it holds. If the two differ, one of them is wrong.
template <std::size_t N>
struct ReassemblyModel {
  void process(const signal_t_dyn<N>& frame) {
    const std::uint32_t id = frame.signal_id % 0x10000000, status = frame.signal_id / 0x10000000;
    const bool other = state() == 2 && id != signal.signal_id;
    note("DEBUG Signal received: 0x", id, " status: 0x", status);
    if (id == start && other) {
      note("WARNING Signal was not received completely, received new sampling frame. Disregard signal: 0x",
           signal.signal_id);
    }
    note("DEBUG current state: ", id == start ? 1 : state());
    if (id == start) {
      signal.data.clear();
      std::memcpy(&signal.sampling_frame, frame.data, 8);
      total = 0;
      complete = false;
      sampling = true;
    } else if (sampling) {
      if (other && total != 0)
        note("ERROR New signal indicated; current signal ", signal.signal_id, " will be disregarded");
      signal.signal_id = id;
      signal.status = static_cast<std::uint8_t>(status);
      append(frame);
    }
  }

  void append(const signal_t_dyn<N>& frame) {
    const std::size_t had = signal.data.size();
    total = frame.total_size;
    const std::size_t adds = had > total ? N : std::min(N, total - had);
    note("DEBUG expected: ", std::dec, total, " received so far: ", had, " sizeof: ", N, " bytes2extract: ", adds);
    signal.data.insert(signal.data.end(), frame.data, frame.data + adds);
    complete = had + adds == total;
  }

  std::optional<IpcSignal> take() {
    complete ? note("DEBUG take signal: 0x", signal.signal_id) : note("WARNING Signal unfinished!");
    if (!complete) return std::nullopt;
    total = 0;
    return std::exchange(signal, {0, 0, signal.sampling_frame, {}});
  }

  int state() const { return !sampling ? 0 : complete ? 3 : 2; }

  template <typename... Pieces>
  void note(const std::string& begin, Pieces... pieces) {
    if (begin[0] == 'D' && log_level < 7) return;
    std::ostringstream line;
    ((line << begin << std::hex) << ... << pieces);
    lines.push_back(line.str());
  }

  std::uint32_t start;
  int log_level;
  Transcript lines = {};
  IpcSignal signal = {};
  std::size_t total = 0;
  bool sampling = false, complete = false;
};

/// A step is a byte, because a fuzzer chooses steps too: the identifier and the total size of the next frame, and
/// whether the signal is taken after it. Sizes are about what a frame carries (N) and what the processor holds.
constexpr std::uint8_t start_frame = 0x00, signal_5 = 0x10, signal_6 = 0x50;  // and other identifiers
constexpr std::uint8_t of_0 = 0, of_1 = 1, of_n = 3, above_n = 4, of_held = 6, below_held = 7, above_2n = 11;  // ...
constexpr std::uint8_t then_take = 0x80;

/// `turn` numbers the frames, and makes their payloads differ.
template <std::size_t N>
signal_t_dyn<N> make_frame(unsigned int step, std::uint32_t start_id, std::size_t held, std::size_t turn) {
  const std::array<std::uint32_t, 8> ids = {start_id, 5, 5, 5, 5, 6, 0, 0xFFFFFFF};
  const std::array<std::size_t, 16> sizes = {0,        1,     N - 1,    N,         N + 1, 2 * N, held, held - 1,
                                             held + 1, 65535, held + N, 2 * N + 1, 3 * N, 4095,  251,  7};
  signal_t_dyn<N> frame{ids[step / 16 % 8] | static_cast<std::uint32_t>(turn << 28U),
                        static_cast<std::uint16_t>(turn),
                        static_cast<std::uint16_t>(sizes[step % 16]),
                        {}};
  std::fill_n(frame.data, N, static_cast<char>(turn + 1));
  return frame;
}

inline auto fields_of(const IpcSignal& signal) {
  return std::tie(signal.signal_id, signal.status, signal.sampling_frame, signal.data);
}

/// Takes the steps with a processor and the model, and throws std::logic_error when their states, signals or log
/// lines differ. Returns how many signals were taken.
template <std::size_t N>
std::size_t reassemble(const std::uint8_t* steps, std::size_t count, std::uint32_t start_id, int log_level) {
  Transcript lines;
  const RecordedLog log(lines, "ipc.signalprocessor", log_level);
  SignalProcessor<N> processor(start_id);
  ReassemblyModel<N> model{start_id, log_level};
  std::size_t signals = 0;
  for (std::size_t i = 0; i < count; ++i) {
    // Once more bytes are held than expected, the signal grows without limit; a start frame ends that before copying
    // takes all the time.
    const unsigned int step = model.signal.data.size() > 200'000 ? start_frame : steps[i];
    signal_t_dyn<N> frame = make_frame<N>(step, start_id, model.signal.data.size(), i);
    model.process(frame);
    processor.process(std::move(frame));
    bool same = static_cast<int>(processor.get_state()) == model.state();
    if (step >= then_take) {
      const auto taken = processor.take(), expected = model.take();
      same = same && taken.has_value() == expected.has_value();
      if (same && taken) same = fields_of(*taken) == fields_of(*expected);
      signals += taken ? 1 : 0;
    }
    if (!same || lines != model.lines) {
      throw std::logic_error("differs from the model at frame " + std::to_string(i) + "\n" + text(lines) +
                             "model:\n" + text(model.lines));
    }
  }
  return signals;
}

}  // namespace ecu::vorn::ipc::test
