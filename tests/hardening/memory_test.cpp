#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <thread>

#include "ipc/queue_port_writer.h"
#include "ipc/signal_processor.h"
#include "logging/logging.h"

using namespace ecu::vorn;
using namespace ecu::vorn::ipc;

static std::size_t allocated = 0;
static std::size_t limit = SIZE_MAX;  ///< of `allocated`

// Not inline, because GCC warns of a mismatch between new and free if it inlines them.
[[gnu::noinline]] void* operator new(std::size_t size) {
  allocated += size;
  if (void* const memory = allocated > limit ? nullptr : std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }

TEST(SendingASignal, AllocatesNothing) {
  const IpcSignal signal{5, 0, 0, std::vector<char>(1000)};
  QueuePortWriter<8> writer;
  writer.open("/dev/null");
  const std::size_t before = allocated;
  EXPECT_TRUE(writer.transmit_data(signal));
  EXPECT_EQ(allocated, before);
}

TEST(ReceivingAFrame, AllocatesNoMoreThanItCarriesWhateverItAnnounces) {
  SignalProcessor<8> processor(0);
  processor.process({0, 0, 0, {}});
  const std::size_t before = allocated;
  processor.process({5, 0, 65535, {}});
  EXPECT_LE(allocated - before, 8U);
}

TEST(ALogLine, IsWrittenWholeOrLostWhereMemoryRunsOut) {
  const std::string name = "a name that takes memory", part(100, 'x');
  std::string came;
  logging::set_sink([&came](int, const std::string&, const std::string& line) { came = line; });
  const auto log_within = [&](std::size_t bytes) {
    limit = allocated + bytes;
    logging::INFO << logging::module(name) << 12 << part << part;
    logging::INFO.do_flush();
    limit = SIZE_MAX;
  };
  // Each on a thread of its own, because a thread's first line takes more memory.
  for (std::size_t bytes = 0; came.empty() && bytes < 10000; bytes += 32) std::thread(log_within, bytes).join();
  EXPECT_EQ(came, "12" + part + part);
}
