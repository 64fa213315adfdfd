#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/frames.h"
#include "support/system_calls.h"

static std::size_t allocations = 0;

// Out of line: seen through, they look like a mismatch to GCC.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }

namespace ecu::vorn::ipc::test {
namespace {

TEST(SendingASignal, TakesNoMemory) {
  QueuePortWriter<4088> writer;
  ASSERT_TRUE(writer.open("/dev/null"));
  const IpcSignal signal{5, 0, 0, std::vector<char>(65535)};
  const std::size_t before = allocations;
  EXPECT_TRUE(writer.transmit_data(signal));
  EXPECT_EQ(allocations, before);
}

/// Notes how much had been allocated when each signal came.
struct Counting : IDataConsumer<IpcSignal> {
  explicit Counting(std::vector<std::size_t>& counts_so_far) : counts(counts_so_far) {}
  void consume(IpcSignal&& /*signal*/) override { counts.push_back(allocations); }
  std::vector<std::size_t>& counts;
};

TEST(ReceivingASignal, TakesWhatItsBytesTakeThatAreAppendedFrameByFrame) {
  constexpr std::size_t frames = 500;
  const std::string chunk = "8 bytes.";
  Transcript calls;
  SystemCalls system(calls);
  system.silent = true;
  std::vector<std::size_t> counts;
  counts.reserve(2);
  QueuePortReader<8> reader(std::make_unique<Counting>(counts));
  ASSERT_TRUE(reader.open("/dev/rx"));
  system.deliver(raw_bytes(frame_of<8>(0, 8, chunk)));
  for (std::size_t i = 0; i < 2 * frames; ++i) system.deliver(raw_bytes(frame_of<8>(5, 8 * frames, chunk)));
  reader.receive_data();
  ASSERT_EQ(counts.size(), 2U);

  const std::size_t before = allocations;
  std::vector<char> alone;
  for (std::size_t i = 0; i < frames; ++i) alone.insert(alone.end(), chunk.begin(), chunk.end());
  EXPECT_GT(allocations, before);
  EXPECT_EQ(counts[1] - counts[0], allocations - before);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
