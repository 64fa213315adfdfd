// Sends one signal through a queuing port: send DEVICE TEXT
#include <ipc/queue_port_writer.h>

#include <iostream>
#include <string>

using namespace ecu::vorn;

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: send DEVICE TEXT\n";
    return 2;
  }
  ipc::QueuePortWriter<8> writer;  // 8 payload bytes: frames of 16, as the port was set up
  if (!writer.open(argv[1])) return 1;

  // The receiver drops signals before the first start frame: a signal with the identifier that both sides agreed on,
  // here 0. Its 8 bytes are the stamp of the signals that follow.
  const ipc::IpcSignal frame_start{0, 0, 0, {1, 0, 0, 0, 0, 0, 0, 0}};
  const std::string text = argv[2];
  const ipc::IpcSignal greeting{0x5a, 0, 0, {text.begin(), text.end()}};

  // True means handed to the device. Nothing tells whether anybody received it.
  return writer.transmit_data(frame_start) && writer.transmit_data(greeting) ? 0 : 1;
}
