#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <utility>

#include "ipc/ipc_signal.h"
#include "ipc/signal_frame.h"
#include "support/recorded_log.h"

namespace ecu::vorn::ipc::test {

/// What reassembly must do, said a second time and in another shape: it keeps facts in place of a state, and counts
/// by the bytes that it holds. Whatever SignalProcessor does differently, one of the two has wrong.
template <std::size_t N>
class ReassemblyModel {
 public:
  explicit ReassemblyModel(std::uint32_t start_id) : start_id_(start_id) {}

  void process(const signal_t_dyn<N>& frame) {
    const std::uint32_t id = frame.signal_id % 0x10000000, status = frame.signal_id / 0x10000000;
    const bool disturbs = state() == 2 && id != held_.signal_id;
    note("DEBUG Signal received: 0x%x status: 0x%x", id, status);
    if (id == start_id_) return open_sampling_frame(frame, disturbs);
    note("DEBUG current state: %d", state());
    if (!sampling_) return;
    if (disturbs && total_ != 0)
      note("ERROR New signal indicated; current signal %x will be disregarded", held_.signal_id);
    held_.signal_id = id;
    held_.status = static_cast<std::uint8_t>(status);
    add_bytes(frame);
  }

  std::optional<IpcSignal> take() {
    note(complete_ ? "DEBUG take signal: 0x%x" : "WARNING Signal unfinished!", held_.signal_id);
    if (!complete_) return {};
    total_ = 0;
    return std::exchange(held_, {0, 0, held_.sampling_frame, {}});
  }

  int state() const { return !sampling_ ? 0 : complete_ ? 3 : 2; }
  std::size_t held() const { return held_.data.size(); }

  bool notes_debug = true;
  Transcript* log = nullptr;

 private:
  void open_sampling_frame(const signal_t_dyn<N>& frame, bool disturbs) {
    constexpr auto unfinished =
        "WARNING Signal was not received completely, received new sampling frame. Disregard signal: 0x%x";
    if (disturbs) note(unfinished, held_.signal_id);
    note("DEBUG current state: %d", 1);
    std::copy_n(frame.data, 8, reinterpret_cast<char*>(&held_.sampling_frame));
    held_.data.clear();
    total_ = 0;
    complete_ = false;
    sampling_ = true;
  }

  void add_bytes(const signal_t_dyn<N>& frame) {
    const std::size_t had = held();
    total_ = frame.total_size;
    const std::size_t adds = had > total_ ? N : std::min(N, total_ - had);
    note("DEBUG expected: %zu received so far: %zu sizeof: %zu bytes2extract: %zu", total_, had, N, adds);
    held_.data.insert(held_.data.end(), frame.data, frame.data + adds);
    complete_ = had + adds == total_;
  }

  template <typename... Values>
  void note(const char* format, Values... values) {
    if (format[0] == 'D' && !notes_debug) return;
    char line[160];
    std::snprintf(line, sizeof line, format, values...);
    log->emplace_back(line);
  }

  IpcSignal held_{};
  std::size_t total_ = 0;
  bool sampling_ = false;
  bool complete_ = false;
  std::uint32_t start_id_;
};

}  // namespace ecu::vorn::ipc::test
