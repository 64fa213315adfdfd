// Prints signals until SIGTERM (systemctl stop) or SIGINT, and ends when the port goes: receive DEVICE [UNIT]
// With a UNIT, signal 7e restarts it.
//
// service/receive@.service runs it as a service (docs/service.md); docs/receiving.md gives the reason for each step.
#include <fcntl.h>
#include <ipc/queue_port_reader.h>
#include <ipc/systemd.h>
#include <ipc/utils.h>
#include <logging/logging.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>

using namespace ecu::vorn;
using namespace std::chrono_literals;

namespace {

// Thrown by the consumer to leave receive_data on a port that is never quiet.
struct Stopped {};
struct HungUp {};

constexpr std::uint32_t restart_id = 0x7e;

void log_error(const std::string& text) {
  logging::ERROR << logging::module("receive") << text;
  logging::ERROR.do_flush();
}

// True if standard error goes to the journal. The variable alone does not say so, because a child process whose
// standard error goes elsewhere inherits it (systemd.exec(5)).
bool is_logged_by_journal() {
  const char* const stream = std::getenv("JOURNAL_STREAM");
  struct stat error {};
  return stream != nullptr && fstat(STDERR_FILENO, &error) == 0 &&
         std::to_string(error.st_dev) + ":" + std::to_string(error.st_ino) == stream;
}

// Tries the device before the reader does, which would retry for a minute and not give the reason. A service starts
// again when its device is back.
bool can_open(const char* device) {
  const int fd = open(device, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) log_error(std::string("cannot open '") + device + "': " + std::strerror(errno));
  if (fd >= 0) close(fd);
  return fd >= 0;
}

// A file descriptor of our own, because the reader does not give access to its own. If the driver refuses a second
// one, only the watchdog notices a hang-up.
class PortWatch {
 public:
  explicit PortWatch(const char* device) : fd(open(device, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
  ~PortWatch() {
    if (works()) close(fd);
  }
  PortWatch(const PortWatch&) = delete;
  PortWatch& operator=(const PortWatch&) = delete;

  bool works() const { return fd >= 0; }
  bool has_hung_up() const {
    pollfd port{fd, 0, 0};  // Asks for no event: POLLHUP and POLLERR are always reported.
    return poll(&port, 1, 0) > 0;
  }
  bool is_gone() const { return has_hung_up() || (works() && !ipc::utils::is_queuing_port_ok(fd)); }

 private:
  int fd;
};

class Printer : public ipc::IDataConsumer<ipc::IpcSignal> {
 public:
  Printer(const PortWatch& port_watch, std::string unit_to_restart)
      : port(port_watch), unit(std::move(unit_to_restart)), called_back(!port.works()) {}

  void consume(ipc::IpcSignal&& signal) override {
    note_call(false);
    if (repeats_at_once(signal)) return;
    std::cout << signal << std::endl;
    if (signal.signal_id == restart_id && !unit.empty()) ipc::Systemd().restart_unit(unit);  // logs a refusal
    last = std::move(signal);
  }
  void on_timeout() override {
    note_call(true);
    is_repeating = false;
    std::cout << "quiet" << std::endl;
  }

  void request_stop() { stop_requested = true; }

  // True if the loop has called back with news since the last call, or if the port is quiet and has not hung up.
  bool is_alive() {
    if (repeats.exchange(0) > 1000) return false;
    return called_back.exchange(false) || (is_quiet && port.works());
  }

 private:
  // After a hang-up the reader processes its last frame again and again, so signals after it are dropped.
  void note_call(bool quiet) {
    if (stop_requested) throw Stopped();
    if (port.has_hung_up()) throw HungUp();
    is_quiet = quiet;
    called_back = true;
  }

  // Without a descriptor of our own, this is the only sign of a hang-up.
  bool repeats_at_once(const ipc::IpcSignal& signal) {
    const auto now = std::chrono::steady_clock::now();
    const bool is_soon = now - std::exchange(last_time, now) < std::chrono::milliseconds(1);
    const bool is_same = signal.signal_id == last.signal_id && signal.data == last.data;
    is_repeating = !port.works() && is_same && (is_soon || is_repeating);
    if (!is_repeating) return false;
    ++repeats;
    return true;
  }

  const PortWatch& port;
  const std::string unit;
  ipc::IpcSignal last{};
  std::chrono::steady_clock::time_point last_time;
  bool is_repeating = false;
  std::atomic<int> repeats{0};
  std::atomic<bool> stop_requested{false};
  std::atomic<bool> called_back;
  std::atomic<bool> is_quiet{true};
};

// Called before the thread starts, so that the thread inherits it: a signal handled there would make the loop's poll
// fail.
sigset_t block_stop_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

bool is_stopped_within(const sigset_t& stop_signals, std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  const timespec limit{static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
  return sigtimedwait(&stop_signals, nullptr, &limit) >= 0;
}

void receive(ipc::QueuePortReader<8>& reader, const std::string& device) {
  try {
    reader.receive_data();
  } catch (const Stopped&) {
  } catch (const HungUp&) {
    log_error("'" + device + "' is gone");
  }
}

// Returns the exit status: 0 when a signal ended it.
int receive_until_stopped(ipc::QueuePortReader<8>& reader, Printer& printer, const PortWatch& port,
                          const std::string& device) {
  const sigset_t stop_signals = block_stop_signals();
  std::atomic<bool> has_ended{false};
  std::thread receiving([&] {
    receive(reader, device);
    has_ended = true;
    kill(getpid(), SIGTERM);  // However the loop ended, wake the main thread.
  });

  while (!is_stopped_within(stop_signals, 1s)) {
    // The loop may go on without calling back: after a hang-up, if the last frame completed no signal, and quietly,
    // if only the node was removed.
    if (port.is_gone()) {
      log_error("'" + device + "' is gone");
      _exit(1);
    }
    if (printer.is_alive()) sd_notify(0, "WATCHDOG=1");
  }
  const bool ended_by_itself = has_ended;
  printer.request_stop();                                                       // seen at the next signal
  reader.stop();                                                                // seen at the next quiet 300 ms
  const bool ends = ended_by_itself || is_stopped_within(stop_signals, 400ms);  // the thread's own SIGTERM
  if (!ends) _exit(0);  // Frames come that complete no signal: no callback, and never quiet.
  receiving.join();
  return ended_by_itself ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    std::cerr << "usage: receive DEVICE [UNIT]\n";
    return 2;
  }
  const char* const device = argv[1];
  if (is_logged_by_journal()) logging::set_sink(logging::journal_sink);  // keeps the priority of each line
  ipc::QueuePortReader<8> reader(nullptr);
  if (!can_open(device) || !reader.open(device)) return 1;
  const PortWatch port(device);
  auto* const printer = new Printer(port, argc == 3 ? argv[2] : "");
  reader.set_consumer(std::unique_ptr<Printer>(printer));
  sd_notify(0, "READY=1");
  return receive_until_stopped(reader, *printer, port, device);
}
