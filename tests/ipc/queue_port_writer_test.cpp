#include "ipc/queue_port_writer.h"

#include <unistd.h>

#include <cstring>

#include "support/interpose.h"

using namespace ecu::vorn::ipc;
using namespace ecu::vorn::ipc::test;

template <typename PayloadSize>
struct AWriter : testing::Test {
  Transcript happened;
  RecordedLog log{happened, "ipc.queuewriter"};
  FakePort port{&happened};
  QueuePortWriter<PayloadSize::value> writer;
};
template <std::size_t N>
using Size = std::integral_constant<std::size_t, N>;
using Sizes = testing::Types<Size<8>, Size<24>, Size<4088>>;
TYPED_TEST_SUITE(AWriter, Sizes, );

/// The cutting rule, on bare bytes. The tail of the last frame holds the frame before.
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

TYPED_TEST(AWriter, WritesOneFramePerChunkWhateverTheWritesReturn) {
  constexpr std::size_t n = TypeParam::value;
  this->writer.open("/dev/null");
  for (const std::size_t size : std::vector<std::size_t>{0, 1, n - 1, n, n + 1, 2 * n, 70000, 65537 * 8}) {
    IpcSignal signal{0xF0001234, 9, 9, std::vector<char>(size)};
    for (std::size_t i = 0; i < size; ++i) signal.data[i] = static_cast<char>(i * 7 + i / 251 + 1);
    this->port.written.clear();
    this->port.write_result = static_cast<ssize_t>(size % 3) - 1;
    EXPECT_TRUE(this->writer.transmit_data(signal));
    EXPECT_TRUE(this->port.written == cut<n>(signal)) << "for " << size << " bytes";
  }
}

using AWriterOf32ByteFrames = AWriter<Size<24>>;

TEST_F(AWriterOf32ByteFrames, ReopensAPortThatIsGone) {
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

TEST_F(AWriterOf32ByteFrames, ReopensTheLastPortThatItOpened) {
  writer.open("/dev/null");
  EXPECT_FALSE(writer.open("/missing"));
  EXPECT_TRUE(writer.transmit_data({5, 0, 0, {'a'}}));
  EXPECT_EQ(port.written.size(), 1U);
}

TEST_F(AWriterOf32ByteFrames, WritesNothingWithoutAPort) {
  EXPECT_FALSE(writer.transmit_data({5, 0, 0, {'a'}}));
  EXPECT_EQ(happened.back(), "ERROR Failed to reopen the TX queue!");
  EXPECT_TRUE(port.written.empty());
}
