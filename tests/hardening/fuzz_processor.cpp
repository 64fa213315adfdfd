#include "support/reassembly.h"

// Makes frames from the bytes and compares the processor with the model: any difference ends the run. The first byte
// chooses the frame size (rarely the largest, which takes ten times as long) and the start identifier. Only short
// runs have DEBUG lines, because those take most of the time.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  using ecu::vorn::ipc::test::reassemble;
  if (size == 0) return 0;
  const unsigned int choice = bytes[0] % 16;
  const auto run = choice == 0 ? reassemble<4088> : choice < 8 ? reassemble<24> : reassemble<8>;
  run(bytes + 1, size - 1, bytes[0] < 128 ? 0x10 : 0, size < 64 ? 7 : 6);
  return 0;
}
