// Writes all log lines, including those of libkeltipc, to a file of the application: log_sink FILE
#include <ipc/queue_port_writer.h>
#include <logging/logging.h>

#include <fstream>
#include <iostream>

using namespace ecu::vorn;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: log_sink FILE\n";
    return 2;
  }
  std::ofstream file(argv[1]);
  if (!file) {
    std::cerr << "log_sink: cannot write '" << argv[1] << "'\n";
    return 1;
  }
  logging::set_log_level(7);  // DEBUG lines too
  // Called for one line at a time, from any thread. A systemd service would use
  // logging::set_sink(logging::journal_sink) instead.
  logging::set_sink([&](int level, const std::string& module, const std::string& text) {
    file << level << '|' << module << '|' << text << std::endl;
  });

  const auto log = logging::module("example");
  logging::INFO << log << "the answer is " << 42;
  logging::INFO.do_flush();

  ipc::QueuePortWriter<8> writer;
  const bool sent = writer.open("/dev/null") && writer.transmit_data({0x5a, 0, 0, {'h', 'i'}});
  logging::set_sink({});  // The file is closed before the library is unloaded.
  return sent && file ? 0 : 1;
}
