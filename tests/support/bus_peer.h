#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace ecu::vorn::ipc::test {

/// The one unit that `answer_well` knows.
struct ManagedUnit {
  const char* path = "/unit/a";
  const char* state = "active";
  std::vector<const char*> wants = {"b.service", "", nullptr};
};
inline ManagedUnit managed;

/// As a manager does it; every string property is the state.
inline int answer_well(sd_bus_message* call) {
  if (std::strcmp(sd_bus_message_get_member(call), "Get") != 0)
    return sd_bus_reply_method_return(call, "o", managed.path);
  const char* property = nullptr;
  sd_bus_message_read(call, "ss", nullptr, &property);
  if (std::strcmp(property, "Wants") != 0) return sd_bus_reply_method_return(call, "v", "s", managed.state);
  sd_bus_message* reply = nullptr;
  sd_bus_message_new_method_return(call, &reply);
  sd_bus_message_open_container(reply, 'v', "as");
  sd_bus_message_append_strv(reply, const_cast<char**>(managed.wants.data()));
  sd_bus_message_close_container(reply);
  sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  return 1;
}

/// The system bus while it lives, of whose calls `answer` makes what it likes: real sd-bus at both ends of a socket.
class BusPeer {
 public:
  /// Gives what sd_bus_reply_method_return gives, or 1 for no reply.
  using Answer = int (*)(sd_bus_message* call);

  BusPeer() {
    const std::string name = "keltipc-test-" + std::to_string(::getpid());
    sockaddr_un address{AF_UNIX, {}};
    name.copy(address.sun_path + 1, name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener, 8) != 0)
      std::abort();
    is_reachable(true);
    serving = std::thread([this] {
      for (int fd = 0; (fd = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) serve(fd);
    });
  }
  ~BusPeer() {
    ::shutdown(listener, SHUT_RDWR);
    serving.join();
    ::close(listener);
  }

  static void is_reachable(bool reachable) {
    const std::string name = (reachable ? "keltipc-test-" : "keltipc-nowhere-") + std::to_string(::getpid());
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:abstract=" + name).c_str(), 1);
  }

  std::atomic<Answer> answer{nullptr};

 private:
  static int on_message(sd_bus_message* message, void* peer, sd_bus_error* /*error*/) {
    if (sd_bus_message_is_method_call(message, "org.freedesktop.DBus", "Hello") > 0)
      return sd_bus_reply_method_return(message, "s", ":1.1");
    const bool is_call = sd_bus_message_is_method_call(message, nullptr, nullptr) > 0;
    return is_call ? static_cast<BusPeer*>(peer)->answer.load()(message) : 0;
  }

  /// Until the client hangs up.
  void serve(int fd) {
    sd_bus* bus = nullptr;
    sd_bus_new(&bus);
    sd_bus_set_fd(bus, fd, fd);
    sd_bus_set_server(bus, 1, sd_id128_t{});
    sd_bus_start(bus);
    sd_bus_add_filter(bus, nullptr, on_message, this);
    while (sd_bus_is_open(bus) > 0) {
      const int done = sd_bus_process(bus, nullptr);
      if (done < 0 || (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)) break;
    }
    sd_bus_flush_close_unref(bus);
  }

  const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::thread serving;
};

}  // namespace ecu::vorn::ipc::test
