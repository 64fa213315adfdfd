#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "ipc/queue_port_reader.h"
#include "ipc/queue_port_writer.h"
#include "ipc/systemd.h"
#include "support/bus_peer.h"
#include "support/descriptors.h"
#include "support/soon.h"
#include "support/system_calls.h"

namespace {

/// Counts down over the calls of a scenario, on its thread: the k-th fails, or all from the k-th on.
struct Countdown {
  long left = 0;  ///< 0: nothing fails
  bool for_ever = false, reached = false;

  bool fails_now() {
    if (left == 0 || (left > 1 && --left > 0)) return false;
    if (!for_ever) left = 0;
    return reached = true;
  }
};

thread_local Countdown allocations, system_calls;
thread_local long live_blocks = 0;
int error = 0;           // of a system call that fails
long short_result = -1;  // of one that transfers bytes

bool fails() {
  if (!system_calls.fails_now()) return false;
  errno = error;
  return true;
}

}  // namespace

extern "C" {

#if defined(KELTIPC_SANITIZED)
}
// Sanitizers have an allocator of their own, which tells of what is lost.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const block = allocations.fails_now() ? nullptr : std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
extern "C" {
#else
// sd-bus's, too.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* counted(void* block, long more = 1) {
  block == nullptr ? errno = ENOMEM : live_blocks += more;
  return block;
}
void* malloc(std::size_t size) { return counted(allocations.fails_now() ? nullptr : __libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) {
  return counted(allocations.fails_now() ? nullptr : __libc_calloc(count, size));
}
void* realloc(void* block, std::size_t size) {
  return counted(allocations.fails_now() ? nullptr : __libc_realloc(block, size), block == nullptr ? 1 : 0);
}
void free(void* block) {
  if (block != nullptr) --live_blocks;
  __libc_free(block);
}
#endif

// What sd-bus asks of the system.
#define REAL(function) reinterpret_cast<decltype(&(function))>(::dlsym(RTLD_NEXT, #function))
int socket(int domain, int type, int protocol) noexcept {
  return fails() ? -1 : REAL(socket)(domain, type, protocol);
}
int connect(int fd, const sockaddr* address, socklen_t size) {
  return fails() ? -1 : REAL(connect)(fd, address, size);
}
int ppoll(pollfd* ports, nfds_t count, const timespec* timeout, const sigset_t* mask) {
  return fails() ? -1 : REAL(ppoll)(ports, count, timeout, mask);
}
/// A short count is one in earnest: that many bytes pass.
ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  if (!fails()) return REAL(sendmsg)(fd, message, flags);
  const iovec& part = message->msg_iov[0];
  const auto size = std::min(part.iov_len, static_cast<std::size_t>(std::max(short_result, 1L)));
  return short_result < 0 ? -1 : ::send(fd, part.iov_base, size, flags);
}
ssize_t recvmsg(int fd, msghdr* message, int flags) {
  if (!fails()) return REAL(recvmsg)(fd, message, flags);
  const iovec& part = message->msg_iov[0];
  if (short_result <= 0) return short_result;
  return ::recv(fd, part.iov_base, std::min(part.iov_len, static_cast<std::size_t>(short_result)), flags);
}

}  // extern "C"

namespace ecu::vorn::ipc::test {
namespace {

struct Keeper : IDataConsumer<IpcSignal> {
  explicit Keeper(std::vector<char>& last) : bytes(last) {}
  void consume(IpcSignal&& signal) override { bytes = std::move(signal.data); }
  std::vector<char>& bytes;
};

/// Opens, sends, receives what was sent, and queries and starts a unit.
struct Scenario {
  Scenario() {
    system.silent = true;
    system.on_write = [this](const void* bytes, std::size_t size) {
      ASSERT_LE(size * (written + 1), wire.size());
      std::memcpy(wire.data() + size * written++, bytes, size);
    };
    system.fault = [](const char* call, long& result) {
      result = std::strncmp(call, "read", 4) == 0 || std::strncmp(call, "write", 5) == 0 ? short_result : -1;
      return fails();
    };
  }

  void run() {
    written = 0;
    received.clear();
    writer.open("/dev/tx") && writer.transmit_data(start) && writer.transmit_data(signal);
    receive();
    state = systemd.get_unit_activestate("a.service");
    wants = systemd.list_unit_dependencies("a.service", "Wants");
    started = systemd.start_unit("a.service");
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

  Transcript calls;
  SystemCalls system{calls};
  const IpcSignal start{0, 0, 0, std::vector<char>(8)}, signal{5, 0, 0, std::vector<char>(20, 'x')};
  std::array<char, 16 * 8> wire{};
  std::size_t written = 0;
  std::vector<char> received;
  QueuePortWriter<8> writer;
  QueuePortReader<8> reader{std::make_unique<Keeper>(received)};
  Systemd systemd;
  Systemd::ActiveState state{};
  std::vector<std::string> wants;
  bool started = false;
};

/// Every line is built, and nobody reads it. What is made once, on first use, is made before anything fails.
class Faults : public testing::Test {
 protected:
  Faults() {
    peer.answer = answer_well;
    logging::set_sink([](int, const std::string&, const std::string&) {});
    logging::set_log_level(7);
    for (auto* const level : {&logging::DEBUG, &logging::INFO, &logging::NOTICE, &logging::WARNING, &logging::ERROR,
                              &logging::CRITICAL}) {
      *level << logging::module("test");
      level->do_flush();
    }
    Scenario().run();
  }
  ~Faults() override { logging::set_sink({}); }

  /// Runs the scenario with the k-th call failing, for each k until the scenario makes fewer calls.
  void sweep(Countdown& countdown, bool for_ever) {
    bool reached = true;
    for (long k = 1; reached; ++k) {
      ASSERT_LT(k, 100'000) << "no end of calls";
      const long blocks_before = live_blocks;
      {
        Scenario scenario;
        countdown = {k, for_ever, false};
        try {
          scenario.run();
        } catch (const std::bad_alloc&) {
        }
        reached = std::exchange(countdown, {}).reached;
        scenario.run();
        EXPECT_EQ(scenario.received, scenario.signal.data) << "after the failure of call " << k;
        EXPECT_EQ(scenario.state, Systemd::ACTIVE_STATE_ACTIVE) << "after the failure of call " << k;
        EXPECT_TRUE(scenario.wants.size() == 2 && scenario.started) << "after the failure of call " << k;
        EXPECT_LE(scenario.system.open_descriptors.size(), 2U) << "after the failure of call " << k;
      }
      EXPECT_EQ(live_blocks, blocks_before) << "memory lost where call " << k << " fails";
    }
    EXPECT_TRUE(soon([this] { return open_descriptors() == descriptors; })) << open_descriptors() << " descriptors";
  }

  BusPeer peer;
  const int descriptors = open_descriptors();
};

TEST_F(Faults, InAllocationsPassThroughOrAreReportedAndNothingIsLost) {
  for (const bool for_ever : {false, true}) sweep(allocations, for_ever);
}

TEST_F(Faults, InSystemCallsAreSurvivedAndNothingIsLost) {
  const struct {
    int error;
    long short_result;
    bool for_ever;
  } faults[] = {{EINTR, -1, false}, {EINTR, -1, true},  {EAGAIN, -1, false}, {EIO, -1, false},
                {EIO, -1, true},    {ENODEV, -1, true}, {ENOSPC, -1, true},  {EPIPE, -1, true},
                {EIO, 3, false},    {EIO, 3, true},     {EIO, 0, false},     {EIO, 0, true}};
  for (const auto& fault : faults) {
    SCOPED_TRACE(std::to_string(fault.error) + (fault.for_ever ? ", for ever" : ", once"));
    error = fault.error;
    short_result = fault.short_result;
    sweep(system_calls, fault.for_ever);
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
