#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "ipc/systemd.h"
#include "support/descriptors.h"
#include "support/recorded_log.h"

// A peer that answers as no manager does, at the other end of a socket pair: real sd-bus on both sides.
namespace {

using Answer = std::function<int(sd_bus_message*)>;

Answer answer;        // what the peer does with each call
int refuse_with = 0;  // what sd_bus_default_system gives in place of a connection

int on_message(sd_bus_message* message, void* /*userdata*/, sd_bus_error* /*error*/) {
  std::uint8_t type = 0;
  sd_bus_message_get_type(message, &type);
  return type == SD_BUS_MESSAGE_METHOD_CALL ? answer(message) : 0;
}

/// Lives until its client hangs up, on a thread of its own.
void run_peer(int fd) {
  sd_bus* bus = nullptr;
  sd_bus_new(&bus);
  sd_bus_set_fd(bus, fd, fd);
  sd_bus_set_server(bus, 1, sd_id128_t{});
  sd_bus_set_anonymous(bus, 1);
  sd_bus_start(bus);
  sd_bus_add_filter(bus, nullptr, on_message, nullptr);
  while (sd_bus_is_open(bus) > 0) {
    const int done = sd_bus_process(bus, nullptr);
    if (done < 0 || (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)) break;
  }
  sd_bus_flush_close_unref(bus);
}

std::thread peer;

}  // namespace

extern "C" int sd_bus_default_system(sd_bus** bus) {
  if (refuse_with != 0) return refuse_with;
  if (peer.joinable()) peer.join();
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return -errno;
  peer = std::thread(run_peer, ends[1]);
  sd_bus_new(bus);
  sd_bus_set_fd(*bus, ends[0], ends[0]);
  sd_bus_set_method_call_timeout(*bus, 200'000);
  return sd_bus_start(*bus);
}

namespace ecu::vorn::ipc::test {
namespace {

const std::string megabyte(1 << 20, 'x');

int fail_without_message(sd_bus_message* call) {
  sd_bus_message* reply = nullptr;
  const sd_bus_error nothing_said{"org.example.Silent", nullptr, 0};
  sd_bus_message_new_method_error(call, &reply, &nothing_said);
  const int sent = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return sent < 0 ? sent : 1;
}

int many_wants(sd_bus_message* call) {
  sd_bus_message* reply = nullptr;
  sd_bus_message_new_method_return(call, &reply);
  sd_bus_message_open_container(reply, 'v', "as");
  sd_bus_message_open_container(reply, 'a', "s");
  for (int i = 0; i < 10'000; ++i)
    sd_bus_message_append(reply, "s", ("unit" + std::to_string(i) + ".service").c_str());
  sd_bus_message_close_container(reply);
  sd_bus_message_close_container(reply);
  const int sent = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return sent < 0 ? sent : 1;
}

/// Half a message, then nothing more.
int hang_up_in_mid_reply(sd_bus_message* call) {
  const int fd = sd_bus_get_fd(sd_bus_message_get_bus(call));
  const char half[] = "l\2\1\1\100\0\0\0\1\0\0\0";
  [[maybe_unused]] const ssize_t sent = ::send(fd, half, sizeof half - 1, MSG_NOSIGNAL);
  ::shutdown(fd, SHUT_RDWR);
  return 1;
}

int interrupt(sd_bus_message* call) {
  ::kill(::getpid(), SIGUSR1);
  ::usleep(50'000);
  return sd_bus_reply_method_return(call, "o", "/job/1");
}

struct Fault {
  const char* name;
  Answer answer;
  std::size_t start_lines;  ///< ERROR or CRITICAL lines of start_unit, and whether it is true
  bool started;
  std::string property;  ///< what get_property_value gives
  std::size_t wants;     ///< how many elements get_property_value_array gives
  int refuse_with = 0;
};

std::ostream& operator<<(std::ostream& os, const Fault& fault) { return os << fault.name; }

const std::vector<Fault> faults = {
    {"wrong type", [](auto* call) { return sd_bus_reply_method_return(call, "s", "no path"); }, 1, true, "", 0},
    {"wrong variant", [](auto* call) { return sd_bus_reply_method_return(call, "v", "u", 7U); }, 1, true, "", 0},
    {"empty reply", [](auto* call) { return sd_bus_reply_method_return(call, ""); }, 1, true, "", 0},
    {"error without message", fail_without_message, 1, false, "", 0},
    {"a megabyte", [](auto* call) { return sd_bus_reply_method_return(call, "v", "s", megabyte.c_str()); }, 1, true,
     megabyte, 0},
    {"10,000 wants", many_wants, 1, true, "", 10'000},
    {"hang-up in mid-reply", hang_up_in_mid_reply, 1, false, "", 0},
    {"no answer", [](auto*) { return 1; }, 1, false, "", 0},
    {"refused connection", {}, 1, false, "", 0, -ECONNREFUSED},
};

class ABusThat : public testing::TestWithParam<Fault> {
 protected:
  void TearDown() override {
    if (peer.joinable()) peer.join();
    refuse_with = 0;
  }
};

TEST_P(ABusThat, FailsCostsALineACallAndTheNextCallWorks) {
  const Fault& fault = GetParam();
  Transcript lines;
  const RecordedLog log(lines, "ipc.systemd", 5);
  const auto descriptors = open_descriptors();
  answer = fault.answer;
  refuse_with = fault.refuse_with;

  Systemd systemd;
  EXPECT_EQ(systemd.start_unit("a.service"), fault.started);
  EXPECT_EQ(lines.size(), fault.start_lines);
  EXPECT_TRUE(systemd.get_property_value("a.b", "a.b", "/p", "P") == fault.property) << lines.back();
  EXPECT_EQ(systemd.get_property_value_array("a.b", "a.b", "/p", "P").size(), fault.wants) << lines.back();
  EXPECT_EQ(lines.size(), fault.start_lines + (fault.property.empty() ? 1 : 0) + (fault.wants == 0 ? 1 : 0));

  if (peer.joinable()) peer.join();
  refuse_with = 0;
  answer = [](auto* call) { return sd_bus_reply_method_return(call, "o", "/job/1"); };
  lines.clear();
  EXPECT_TRUE(systemd.start_unit("a.service"));
  EXPECT_EQ(lines, Transcript{});
  peer.join();
  EXPECT_EQ(open_descriptors(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(, ABusThat, testing::ValuesIn(faults), [](const auto& fault) {
  std::string name = fault.param.name;
  for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
});

TEST(AHandledSignal, InMidCallIsAFailureThatIsReportedOrNoneAtAll) {
  struct sigaction handled {};
  handled.sa_handler = [](int) {};
  sigaction(SIGUSR1, &handled, nullptr);
  answer = interrupt;
  Transcript lines;
  const RecordedLog log(lines, "ipc.systemd", 5);
  const bool started = Systemd().start_unit("a.service");
  peer.join();
  // libsystemd before 253 gives up with EINTR, later ones go on.
  EXPECT_EQ(lines.size(), started ? 0U : 1U);
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
