#include <iostream>

#include "support/reassembly.h"

// Bytes as frames, of each size, beside the model: any difference ends the run.
namespace {

struct FrameCount {
  ~FrameCount() { std::cerr << "frames: " << frames << std::endl; }
  unsigned long long frames = 0;
} count;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using ecu::vorn::ipc::test::reassemble;
  if (size == 0) return 0;
  // The first byte chooses the frame size (the largest rarely, because it takes ten times as long), the start
  // identifier and the log level: DEBUG lines take most of the time, so only short runs have them.
  const unsigned int choice = bytes[0] % 16;
  const auto run = choice == 0 ? reassemble<4088> : choice < 8 ? reassemble<24> : reassemble<8>;
  run(bytes + 1, size - 1, bytes[0] < 128 ? 0x10 : 0, size < 64 ? 7 : 6);
  count.frames += size - 1;
  return 0;
}
