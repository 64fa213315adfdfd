#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "ipc/ipc_signal.h"
#include "ipc/signal_frame.h"

namespace ecu::vorn::ipc::test {

template <std::size_t N>
using PayloadSize = std::integral_constant<std::size_t, N>;
using PayloadSizes = testing::Types<PayloadSize<8>, PayloadSize<24>, PayloadSize<4088>>;

template <std::size_t N>
signal_t_dyn<N> frame_of(std::uint32_t word, std::size_t total_size, std::string_view payload) {
  signal_t_dyn<N> frame{word, 0, static_cast<std::uint16_t>(total_size), {}};
  std::copy_n(payload.begin(), std::min(N, payload.size()), frame.data);
  return frame;
}

template <typename Value>
std::string raw_bytes(const Value& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

inline std::string printed(const IpcSignal& signal) {
  std::ostringstream text;
  text << signal;
  return text.str();
}

}  // namespace ecu::vorn::ipc::test
