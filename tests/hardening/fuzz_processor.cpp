#include <algorithm>

#include "support/reassembly_check.h"

// Byte strings as frames, each size of them, beside the model: any difference ends the run. The first byte chooses
// the size, the next four the frame start identifier. A frame is written short: word, total size, one byte to fill it
// with.
namespace ecu::vorn::ipc::test {
namespace {

constexpr std::size_t header_size = 5;
constexpr std::size_t frame_size = 7;

/// How many frames a run saw, said at its end.
struct FrameCount {
  ~FrameCount() { std::cerr << "frames: " << frames << std::endl; }
  unsigned long long frames = 0;
} count;

template <std::size_t N>
signal_t_dyn<N> frame_from(const std::uint8_t* bytes) {
  signal_t_dyn<N> frame{};
  std::memcpy(&frame.signal_id, bytes, 4);
  std::memcpy(&frame.total_size, bytes + 4, 2);
  std::fill_n(frame.data, N, static_cast<char>(bytes[6]));
  return frame;
}

template <std::size_t N>
void run(const std::uint8_t* bytes, std::size_t size) {
  std::uint32_t start_id = 0;
  std::memcpy(&start_id, bytes + 1, sizeof start_id);
  ReassemblyCheck<N> check(start_id, bytes[0] >= 0xF0);
  for (std::size_t at = header_size; at + frame_size <= size; at += frame_size) {
    if (bytes[at + 6] == 0xFF) check.take();
    check.process(frame_from<N>(bytes + at));
    ++count.frames;
  }
  check.compare_logs();
}

}  // namespace
}  // namespace ecu::vorn::ipc::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using namespace ecu::vorn::ipc::test;
  if (size < header_size) return 0;
  switch (bytes[0] % 3) {
    case 0:
      run<8>(bytes, size);
      break;
    case 1:
      run<24>(bytes, size);
      break;
    default:
      run<4088>(bytes, size);
  }
  return 0;
}
