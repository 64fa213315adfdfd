// Receives signals in a service until SIGTERM (systemctl stop) or SIGINT: receive DEVICE
// receive.service beside this file is a unit for it.
#include <ipc/queue_port_reader.h>
#include <signal.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <thread>

using namespace ecu::vorn;

namespace {

class Printer : public ipc::IDataConsumer<ipc::IpcSignal> {
 public:
  explicit Printer(bool& stopped_flag) : stopped(stopped_flag) {}
  void consume(ipc::IpcSignal&& signal) override { std::cout << signal << std::endl; }
  void on_timeout() override { std::cout << "quiet" << std::endl; }
  void on_finish() override { stopped = true; }

 private:
  bool& stopped;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: receive DEVICE\n";
    return 2;
  }
  bool stopped = false;
  ipc::QueuePortReader<8> reader(std::make_unique<Printer>(stopped));
  if (!reader.open(argv[1])) return 1;  // after up to a minute of waiting, which a signal still ends

  // Blocked before the thread starts, so in the thread too: a signal handled there would end the loop's poll as
  // failed.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  std::thread receiving([&] {
    reader.receive_data();
    kill(getpid(), SIGTERM);  // Ended by itself, since poll failed: so ends the program.
  });

  int received = 0;
  sigwait(&stop_signals, &received);
  reader.stop();  // Seen at the next quiet 300 ms. On a port that is never quiet TimeoutStopSec= ends the service.
  receiving.join();
  return stopped ? 0 : 1;
}
