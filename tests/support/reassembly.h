#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "ipc/signal_processor.h"
#include "support/recorded_log.h"

namespace ecu::vorn::ipc::test {

/// What reassembly must do, written independently of SignalProcessor: it keeps facts in place of a state, and counts
/// the bytes that it holds. If the two differ, one of them is wrong.
template <std::size_t N>
class ReassemblyModel {
 public:
  ReassemblyModel(std::uint32_t start_id, Transcript& log, int log_level)
      : start(start_id), notes(log), notes_debug(log_level >= 7) {}

  void process(const signal_t_dyn<N>& frame) {
    const std::uint32_t id = frame.signal_id % 0x10000000, status = frame.signal_id / 0x10000000;
    const bool other = state() == 2 && id != signal.signal_id;
    note("DEBUG Signal received: 0x%x status: 0x%x", id, status);
    if (id == start) return open_sampling_frame(frame, other);
    note("DEBUG current state: %d", state());
    if (!sampling) return;
    if (other && total != 0)
      note("ERROR New signal indicated; current signal %x will be disregarded", signal.signal_id);
    signal.signal_id = id;
    signal.status = static_cast<std::uint8_t>(status);
    append(frame);
  }

  std::optional<IpcSignal> take() {
    note(complete ? "DEBUG take signal: 0x%x" : "WARNING Signal unfinished!", signal.signal_id);
    if (!complete) return std::nullopt;
    total = 0;
    return std::exchange(signal, {0, 0, signal.sampling_frame, {}});
  }

  int state() const { return !sampling ? 0 : complete ? 3 : 2; }
  std::size_t held() const { return signal.data.size(); }

 private:
  void open_sampling_frame(const signal_t_dyn<N>& frame, bool other) {
    if (other) {
      note("WARNING Signal was not received completely, received new sampling frame. Disregard signal: 0x%x",
           signal.signal_id);
    }
    note("DEBUG current state: %d", 1);
    std::memcpy(&signal.sampling_frame, frame.data, 8);
    signal.data.clear();
    total = 0;
    complete = false;
    sampling = true;
  }

  void append(const signal_t_dyn<N>& frame) {
    const std::size_t had = held();
    total = frame.total_size;
    const std::size_t adds = had > total ? N : std::min(N, total - had);
    note("DEBUG expected: %zu received so far: %zu sizeof: %zu bytes2extract: %zu", total, had, N, adds);
    signal.data.insert(signal.data.end(), frame.data, frame.data + adds);
    complete = had + adds == total;
  }

  template <typename... Values>
  void note(const char* format, Values... values) {
    if (format[0] == 'D' && !notes_debug) return;
    std::array<char, 160> line{};
    std::snprintf(line.data(), line.size(), format, values...);
    notes.emplace_back(line.data());
  }

  IpcSignal signal{};
  std::size_t total = 0;
  bool sampling = false, complete = false;
  const std::uint32_t start;
  Transcript& notes;
  const bool notes_debug;
};

/// A frame in one byte: bits 0 to 3 choose the size, 4 to 6 the identifier (0 is the frame start), and bit 7 says
/// that `take` is called after it. `turn` numbers the frames, and so makes their payloads differ.
template <std::size_t N>
signal_t_dyn<N> make_frame(unsigned int byte, std::uint32_t start_id, std::size_t held, std::size_t turn) {
  const std::array<std::uint32_t, 8> ids = {start_id, 5, 5, 5, 5, 6, 0, 0xFFFFFFF};
  const std::array<std::size_t, 16> sizes = {0,        1,     N - 1,    N,         N + 1, 2 * N, held, held - 1,
                                             held + 1, 65535, held + N, 2 * N + 1, 3 * N, 4095,  251,  7};
  signal_t_dyn<N> frame;
  frame.signal_id = ids[byte / 16 % 8] | static_cast<std::uint32_t>(turn << 28U);
  frame.chunk_index = static_cast<std::uint16_t>(turn);
  frame.total_size = static_cast<std::uint16_t>(sizes[byte % 16]);
  for (std::size_t i = 0; i < N; ++i) frame.data[i] = static_cast<char>(turn + i);
  return frame;
}

/// Gives the frames to a processor and to the model, and throws std::logic_error when their states, signals or log
/// lines differ. Returns the number of signals taken.
template <std::size_t N>
std::size_t reassemble(const std::uint8_t* bytes, std::size_t count, std::uint32_t start_id, int log_level) {
  Transcript lines, modelled_lines;
  const RecordedLog log(lines, "ipc.signalprocessor", log_level);
  SignalProcessor<N> processor(start_id);
  ReassemblyModel<N> model(start_id, modelled_lines, log_level);
  std::size_t signals = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto agree = [i](bool same, const char* what) {
      if (!same)
        throw std::logic_error(std::string(what) + " differs from the model's after frame " + std::to_string(i));
    };
    // A signal whose counts have missed each other would grow until the run spends all its time on copying.
    const unsigned int byte = model.held() > 200'000 ? 0U : bytes[i];
    signal_t_dyn<N> frame = make_frame<N>(byte, start_id, model.held(), i);
    model.process(frame);
    processor.process(std::move(frame));
    agree(static_cast<int>(processor.get_state()) == model.state(), "the state");
    if (byte >= 128) {
      const auto taken = processor.take(), expected = model.take();
      agree(taken.has_value() == expected.has_value(), "whether there is a signal");
      agree(!taken || (taken->signal_id == expected->signal_id && taken->status == expected->status &&
                       taken->sampling_frame == expected->sampling_frame && taken->data == expected->data),
            "the signal");
      signals += taken ? 1 : 0;
    }
    agree(lines == modelled_lines, "the log");
  }
  return signals;
}

}  // namespace ecu::vorn::ipc::test
