// Receives signals until SIGTERM (systemctl stop) or SIGINT, and notices when the port hangs up: receive DEVICE
//
// receive.service in this folder runs it as a service; docs/receiving.md gives the reason for each step.
#include <fcntl.h>
#include <ipc/queue_port_reader.h>
#include <poll.h>
#include <signal.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <thread>
#include <utility>

using namespace ecu::vorn;

namespace {

// Thrown by the consumer to leave receive_data on a port that is never quiet.
struct Stopped {};
struct HungUp {};

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

 private:
  int fd;
};

class Printer : public ipc::IDataConsumer<ipc::IpcSignal> {
 public:
  explicit Printer(const PortWatch& port_watch) : port(port_watch), called_back(!port.works()) {}

  void consume(ipc::IpcSignal&& signal) override {
    note_call(false);
    if (repeats_at_once(signal)) return;
    std::cout << signal << std::endl;
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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: receive DEVICE\n";
    return 2;
  }
  ipc::QueuePortReader<8> reader(nullptr);
  if (!reader.open(argv[1])) return 1;  // waits up to a minute; SIGTERM still ends the program
  const PortWatch port(argv[1]);
  auto* const printer = new Printer(port);
  reader.set_consumer(std::unique_ptr<Printer>(printer));

  sd_notify(0, "READY=1");
  const sigset_t stop_signals = block_stop_signals();
  std::atomic<bool> has_ended{false};
  std::thread receiving([&] {
    try {
      reader.receive_data();
    } catch (const Stopped&) {
    } catch (const HungUp&) {
      std::cerr << argv[1] << " has hung up\n";
    }
    has_ended = true;
    kill(getpid(), SIGTERM);  // However the loop ended, wake the main thread.
  });

  const timespec second{1, 0};
  while (sigtimedwait(&stop_signals, nullptr, &second) < 0) {
    // If the last frame completed no signal, the loop goes on without calling back, and only this ends it.
    if (port.has_hung_up()) _exit(1);
    if (printer->is_alive()) sd_notify(0, "WATCHDOG=1");
  }
  const bool ended_by_itself = has_ended;
  printer->request_stop();  // seen at the next signal
  reader.stop();            // seen at the next quiet 300 ms
  const timespec grace{0, 400'000'000};
  const bool ends = ended_by_itself || sigtimedwait(&stop_signals, nullptr, &grace) > 0;  // the thread's own SIGTERM
  if (!ends) _exit(0);  // Frames come that complete no signal: no callback, and never quiet.
  receiving.join();
  return ended_by_itself ? 1 : 0;
}
