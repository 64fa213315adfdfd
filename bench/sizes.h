#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ipc/ipc_signal.h"

/// Sizes of the signals and frames to measure.
namespace bench {

constexpr std::array<std::size_t, 5> lengths = {1, 20, 240, 4000, 65535};

constexpr std::size_t chunks(std::size_t length, std::size_t n) { return (length + n - 1) / n; }

/// How many signals of 4000 bytes have about as many frames as one of 65535.
constexpr std::size_t shorts_a_long(std::size_t n) { return chunks(65535, n) / chunks(4000, n); }

/// Frames in a batch: about 250, or fewer if they would not fit into a processor's own cache.
constexpr std::size_t frames_a_batch(std::size_t n) {
  return std::min<std::size_t>(250, (std::size_t{128} << 10U) / (n + 8));
}

/// Signals in a batch.
constexpr std::size_t batch_of(std::size_t length, std::size_t n) {
  return std::max<std::size_t>(1, frames_a_batch(n) / chunks(length, n));
}

inline ecu::vorn::ipc::IpcSignal signal_of(std::size_t length) {
  return {0x5a, 0, 0, std::vector<char>(length, 'x')};
}

/// "transmit_data/24/4000"
inline std::string figure_name(const std::string& call, std::size_t n, std::size_t length) {
  return call + "/" + std::to_string(n) + "/" + std::to_string(length);
}

/// Calls `add(std::integral_constant<std::size_t, N>())` for each N.
template <typename Add>
void for_each_n(const Add& add) {
  add(std::integral_constant<std::size_t, 8>());
  add(std::integral_constant<std::size_t, 24>());
  add(std::integral_constant<std::size_t, 4088>());
}

}  // namespace bench
