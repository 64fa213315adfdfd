#include <iostream>
#include <random>

#include "support/reassembly.h"

// Byte strings as frames, each size of them, beside the model: any difference ends the run.
namespace {

struct FrameCount {
  ~FrameCount() { std::cerr << "frames: " << frames << std::endl; }
  unsigned long long frames = 0;
} count;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using ecu::vorn::ipc::test::reassemble;
  if (size == 0) return 0;
  // The largest seldom: its frames take ten times as long.
  const unsigned choice = bytes[0] / 4 % 16;
  const auto run = choice == 0 ? reassemble<4088> : choice < 8 ? reassemble<24> : reassemble<8>;
  count.frames += run(bytes, size).frames;
  return 0;
}

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* bytes, std::size_t size, std::size_t room);

/// Behind what the library makes of the bytes the rest is filled up at random: short inputs spend their time between
/// runs.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* bytes, std::size_t size, std::size_t room,
                                               unsigned seed) {
  std::minstd_rand random(seed);
  size = LLVMFuzzerMutate(bytes, size, room);
  if (random() % 4 != 0) size = 1 + random() % size;
  bytes[0] = static_cast<std::uint8_t>(random() >> 8U);
  for (; size < room; ++size) bytes[size] = static_cast<std::uint8_t>(random() >> 8U);
  return size;
}
