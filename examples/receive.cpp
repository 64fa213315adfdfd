// Receives signals in a service until SIGTERM (systemctl stop) or SIGINT, and notices when the port hangs up: receive
// DEVICE receive.service beside this file is a unit for it; docs/receiving.md gives the reasons for each step.
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

// The ways out of receive_data on a port that is never quiet: thrown by the consumer, they pass through it.
struct Stopped {};
struct HungUp {};

// A descriptor of our own, since the reader does not show its one. If the driver refuses a second one, nothing but
// the watchdog notices a hang-up.
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

  // Whether the loop has called back since the last look, with news. On a quiet port it has no reason to.
  bool is_alive() {
    if (repeats.exchange(0) > 1000) return false;
    return called_back.exchange(false) || (is_quiet && port.works());
  }

 private:
  // A port that has hung up hands on its last frame again and again: no signal counts after that.
  void note_call(bool quiet) {
    if (stop_requested) throw Stopped();
    if (port.has_hung_up()) throw HungUp();
    is_quiet = quiet;
    called_back = true;
  }

  // Without a descriptor of our own nothing else shows a hang-up.
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

// Blocked before the thread starts, so in the thread too: a signal handled there would end the loop's poll as failed.
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
  if (!reader.open(argv[1])) return 1;  // after up to a minute of waiting, which a signal ends
  const PortWatch port(argv[1]);
  auto* const printer = new Printer(port);
  reader.set_consumer(std::unique_ptr<Printer>(printer));

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
    kill(getpid(), SIGTERM);  // Whatever ended the loop ends the program.
  });

  const timespec second{1, 0};
  while (sigtimedwait(&stop_signals, nullptr, &second) < 0) {
    // The loop goes on without calling back if the last frame completed no signal. Nothing but this ends it then.
    if (port.has_hung_up()) _exit(1);
    if (printer->is_alive()) sd_notify(0, "WATCHDOG=1");
  }
  const bool ended_by_itself = has_ended;
  printer->request_stop();  // seen at the next signal
  reader.stop();            // seen at the next quiet 300 ms
  const timespec grace{0, 400'000'000};
  const bool ends = ended_by_itself || sigtimedwait(&stop_signals, nullptr, &grace) > 0;  // the thread's own SIGTERM
  if (!ends) _exit(0);  // Frames come that complete no signal: nothing is called back, and it is never quiet.
  receiving.join();
  return ended_by_itself ? 1 : 0;
}
