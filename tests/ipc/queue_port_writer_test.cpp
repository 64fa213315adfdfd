#include "ipc/queue_port_writer.h"

#include <unistd.h>

#include <cstring>

#include "support/interpose.h"

using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;

/// The frames that a signal must give. The end of the last one still holds bytes of the frame before.
template <std::size_t N>
Transcript cut(const IpcSignal& signal) {
  Transcript frames;
  signal_t_dyn<N> frame{signal.signal_id, 0, static_cast<std::uint16_t>(signal.data.size()), {}};
  for (std::size_t at = 0; at < signal.data.size(); at += N, ++frame.chunk_index) {
    std::memcpy(frame.data, &signal.data[at], std::min(N, signal.data.size() - at));
    frames.emplace_back(reinterpret_cast<const char*>(&frame), sizeof frame);
  }
  return frames;
}

template <std::size_t N>
void transmit_each_size() {
  FakePort port;
  QueuePortWriter<N> writer;
  writer.open("/dev/null");
  for (const std::size_t size : std::vector<std::size_t>{0, 1, N - 1, N, N + 1, 2 * N, 70000, 65537 * 8}) {
    IpcSignal signal{0xF0001234, 9, 9, std::vector<char>(size)};
    for (std::size_t i = 0; i < size; ++i) signal.data[i] = static_cast<char>(i * 7 + i / 251 + 1);
    port.written.clear();
    port.write_result = static_cast<ssize_t>(size % 3) - 1;
    EXPECT_TRUE(writer.transmit_data(signal));
    EXPECT_TRUE(port.written == cut<N>(signal)) << "for " << size << " bytes in frames of " << N;
  }
}

struct AWriter : testing::Test {
  Transcript happened;
  RecordedLog log{happened, "ipc.queuewriter"};
  FakePort port{&happened};
  QueuePortWriter<24> writer;
};

TEST(AWriterOfEachSize, WritesOneFramePerChunkWhateverTheWritesReturn) {
  transmit_each_size<8>();
  transmit_each_size<24>();
  transmit_each_size<4088>();
}

TEST_F(AWriter, ReopensAPortThatIsGone) {
  const int its_descriptor = ::dup(0);
  ::close(its_descriptor);
  writer.open("/dev/null");
  ::close(its_descriptor);
  happened.clear();
  EXPECT_TRUE(writer.transmit_data({0x1005, 0, 0, std::vector<char>(25)}));
  EXPECT_EQ(text(happened), R"(ERROR The TX queue is no longer available! Will try to reopen the port.
DEBUG Open TX queue '/dev/null'
INFO associated file (/dev/null) already opened, closing it first.
INFO TX queue '/dev/null' opened (retries: 0)
NOTICE Successfully reopened the TX queue
DEBUG Send signal 0x1005 with 2 chunks
synchronous write 32
synchronous write 32
DEBUG Data for signal_id '4101' has been written!
)");
}

TEST_F(AWriter, ReopensTheLastPortThatItOpened) {
  writer.open("/dev/null");
  EXPECT_FALSE(writer.open("/missing"));
  EXPECT_TRUE(writer.transmit_data({5, 0, 0, {'a'}}));
  EXPECT_EQ(port.written.size(), 1U);
}

TEST_F(AWriter, WritesNothingWithoutAPort) {
  EXPECT_FALSE(writer.transmit_data({5, 0, 0, {'a'}}));
  EXPECT_EQ(happened.back(), "ERROR Failed to reopen the TX queue!");
  EXPECT_TRUE(port.written.empty());
}
