#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "support/system_calls.h"

namespace {

/// Counts down over the calls of a scenario: the k-th fails, or all from the k-th on.
struct Countdown {
  long left = 0;  ///< 0: nothing fails
  bool for_ever = false;
  bool reached = false;

  bool fails_now() {
    if (left == 0) return false;
    if (left > 1) {
      --left;
      return false;
    }
    if (!for_ever) left = 0;
    return reached = true;
  }
};

thread_local Countdown allocations;
long live_blocks = 0;

void* take_block(std::size_t size) {
  if (allocations.fails_now()) throw std::bad_alloc();
  void* const block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  ++live_blocks;
  return block;
}

void give_block(void* block) {
  if (block != nullptr) --live_blocks;
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) { return take_block(size); }
void* operator new[](std::size_t size) { return take_block(size); }
void operator delete(void* block) noexcept { give_block(block); }
void operator delete[](void* block) noexcept { give_block(block); }
void operator delete(void* block, std::size_t /*size*/) noexcept { give_block(block); }
void operator delete[](void* block, std::size_t /*size*/) noexcept { give_block(block); }

namespace ecu::vorn::ipc::test {
namespace {

constexpr std::size_t N = 8;

class Keeper : public IDataConsumer<IpcSignal> {
 public:
  explicit Keeper(std::vector<char>& last) : bytes(last) {}
  void consume(IpcSignal&& signal) override { bytes = std::move(signal.data); }

 private:
  std::vector<char>& bytes;
};

/// Opens, sends, receives what was sent; and once more when nothing fails any longer.
class Scenario {
 public:
  Scenario() : system(calls), writer(), reader(std::make_unique<Keeper>(received)) {
    system.silent = true;
    system.on_write = [this](const void* bytes, std::size_t size) {
      ASSERT_LE(size * (written + 1), wire.size());
      std::memcpy(wire.data() + size * written++, bytes, size);
    };
    system.fault = [this](const char* call, long& result) { return fails(call, result); };
  }

  void run() {
    written = 0;
    writer.open("/dev/tx") && writer.transmit_data(start) && writer.transmit_data(signal);
    receive();
  }

  bool works_again() {
    system_calls = {};
    allocations = {};
    run();
    return received == signal.data;
  }

  Countdown system_calls;
  int error = 0;
  long short_result = -1;

  Transcript calls;
  SystemCalls system;

 private:
  bool fails(const char* call, long& result) {
    if (!system_calls.fails_now()) return false;
    const bool transfers = std::strcmp(call, "read") == 0 || std::strcmp(call, "write") == 0;
    const bool may_be_zero = transfers || std::strcmp(call, "poll") == 0;
    result = transfers || (may_be_zero && short_result == 0) ? short_result : -1;
    errno = error;
    return true;
  }

  void receive() {
    reader.stop();
    if (!reader.open("/dev/rx")) return;
    const Countdown paused = std::exchange(allocations, {});
    system.events.clear();
    for (std::size_t i = 0; i < written; ++i) system.deliver(std::string(wire.data() + i * 16, 16));
    system.quiet();
    allocations = paused;
    reader.receive_data();
  }

  const IpcSignal start{0, 0, 0, std::vector<char>(8)};
  const IpcSignal signal{5, 0, 0, std::vector<char>(20, 'x')};
  std::array<char, 16 * 8> wire{};
  std::size_t written = 0;
  std::vector<char> received;
  QueuePortWriter<N> writer;
  QueuePortReader<N> reader;
};

/// Runs the scenario with the k-th call failing, for each k until the scenario makes fewer calls.
template <typename Arm>
void sweep(Arm arm) {
  for (long k = 1;; ++k) {
    ASSERT_LT(k, 100'000) << "no end of calls";
    const long blocks_before = live_blocks;
    bool reached = false;
    {
      Scenario scenario;
      Countdown& countdown = arm(scenario);
      countdown.left = k;
      try {
        scenario.run();
      } catch (const std::bad_alloc&) {
      }
      reached = countdown.reached;
      EXPECT_TRUE(scenario.works_again()) << "after the failure of call " << k;
      EXPECT_LE(scenario.system.open_descriptors.size(), 2U) << "after the failure of call " << k;
    }
    EXPECT_EQ(live_blocks, blocks_before) << "memory lost where call " << k << " fails";
    if (!reached) return;
  }
}

/// Every line is built, and nobody reads it. What is made once, on first use, is made before anything fails.
class Faults : public testing::Test {
 protected:
  Faults() {
    logging::set_sink([](int, const std::string&, const std::string&) {});
    logging::set_log_level(7);
    for (auto* const level :
         {&logging::DEBUG, &logging::INFO, &logging::NOTICE, &logging::WARNING, &logging::ERROR}) {
      *level << logging::module("test");
      level->do_flush();
    }
    Scenario().run();
  }
  ~Faults() override { logging::set_sink({}); }
};

TEST_F(Faults, InAllocationsPassThroughOrAreReportedAndNothingIsLost) {
  for (const bool for_ever : {false, true}) {
    sweep([&](Scenario&) -> Countdown& {
      allocations.for_ever = for_ever;
      allocations.reached = false;
      return allocations;
    });
  }
}

TEST_F(Faults, InSystemCallsAreSurvivedAndNothingIsLost) {
  struct Fault {
    int error;
    long short_result;
  };
  constexpr Fault faults[] = {{EINTR, -1},  {EAGAIN, -1}, {EIO, -1}, {ENODEV, -1},
                              {ENOSPC, -1}, {EPIPE, -1},  {0, 3},    {0, 0}};
  for (const Fault& fault : faults) {
    for (const bool for_ever : {false, true}) {
      SCOPED_TRACE(std::string(strerror(fault.error)) + (for_ever ? ", for ever" : ", once"));
      sweep([&](Scenario& scenario) -> Countdown& {
        scenario.error = fault.error;
        scenario.short_result = fault.short_result;
        scenario.system_calls.for_ever = for_ever;
        return scenario.system_calls;
      });
    }
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
