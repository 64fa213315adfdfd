// Tests that an application does not take a damaged signal for a good one, on a simulated port that damages some:
//
//   keltipc-portsim /tmp/port --lose 1% --corrupt 1% --duplicate 1% --swap 1% --seed 1 &
//   PORT=/tmp/port damage_test
#include <gtest/gtest.h>
#include <ipc/queue_port_reader.h>
#include <ipc/queue_port_writer.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace ecu::vorn::ipc;

namespace {

// A receiver cannot see damage to a payload, and hardly any to a header. So both sides agreed that the last four
// bytes of each payload are a checksum (CRC-32) of the identifier and of the bytes before.
void add_checksum(IpcSignal& signal) {
  std::uint32_t crc = ~signal.signal_id;
  for (const char byte : signal.data) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
  }
  for (int shift = 0; shift < 32; shift += 8) signal.data.push_back(static_cast<char>(crc >> shift));
}

// False if the signal is damaged.
bool remove_checksum(IpcSignal& signal) {
  const std::vector<char> received = signal.data;
  if (received.size() < 4) return false;
  signal.data.resize(received.size() - 4);
  IpcSignal expected = signal;
  add_checksum(expected);
  return expected.data == received;
}

// The application's code. What it does with a good signal comes here: it keeps it.
class Application : public IDataConsumer<IpcSignal> {
 public:
  void consume(IpcSignal&& signal) override {
    if (remove_checksum(signal)) {
      taken.emplace_back(signal.signal_id, signal.data);
    } else {
      ++refused;
    }
  }

  std::vector<std::pair<std::uint32_t, std::vector<char>>> taken;
  int refused = 0;
};

TEST(Application, TakesNoDamagedSignalForAGoodOne) {
  const char* const port = std::getenv("PORT");
  ASSERT_NE(port, nullptr) << "set PORT to a port of keltipc-portsim";
  auto* const application = new Application;
  QueuePortReader<8> reader{std::unique_ptr<Application>(application)};
  QueuePortWriter<8> writer;
  ASSERT_TRUE(reader.open(port) && writer.open(port));
  std::thread receiving([&] { reader.receive_data(); });

  std::set<std::pair<std::uint32_t, std::vector<char>>> sent;
  for (std::uint32_t n = 0; n < 2000; ++n) {
    const std::string text = "signal " + std::to_string(n) + std::string(n % 30, '.');
    IpcSignal signal{n % 100 + 1, 0, 0, {text.begin(), text.end()}};
    sent.emplace(signal.signal_id, signal.data);
    add_checksum(signal);
    if (n % 10 == 0) writer.transmit_data({0, 0, 0, std::vector<char>(8, 1)});  // a start frame
    writer.transmit_data(signal);
  }
  reader.stop();
  receiving.join();

  for (const auto& signal : application->taken) EXPECT_EQ(sent.count(signal), 1U);
  EXPECT_FALSE(application->taken.empty());
  EXPECT_GT(application->refused, 0) << "nothing was damaged, so this has shown nothing";
}

}  // namespace
