#include "ipc/queue_port_writer.h"

#include <gmock/gmock.h>

#include "support/frames.h"
#include "support/system_calls.h"

namespace ecu::vorn::ipc::test {
namespace {

/// The cutting rule, on bare bytes.
template <std::size_t N>
std::vector<std::string> cut(const IpcSignal& signal) {
  std::vector<std::string> frames;
  std::string chunk(N, '\0');
  for (std::size_t at = 0; at < signal.data.size(); at += N) {
    std::copy_n(&signal.data[at], std::min(N, signal.data.size() - at), chunk.begin());
    frames.push_back(raw_bytes(signal.signal_id) + raw_bytes(static_cast<std::uint16_t>(frames.size())) +
                     raw_bytes(static_cast<std::uint16_t>(signal.data.size())) + chunk);
  }
  return frames;
}

template <typename Size>
struct AWriter : testing::Test {
  Transcript happened;
  RecordedLog log{happened, "ipc.queuewriter"};
  SystemCalls calls{happened};
  QueuePortWriter<Size::value> writer;
};
TYPED_TEST_SUITE(AWriter, PayloadSizes, );

TYPED_TEST(AWriter, WritesOneFrameAChunkWhateverTheWritesReturn) {
  constexpr std::size_t n = TypeParam::value;
  ASSERT_TRUE(this->writer.open("/dev/tx"));
  const ssize_t results[] = {0, -1, 3};
  for (const std::size_t size : std::vector<std::size_t>{0, 1, n - 1, n, n + 1, 2 * n, 65535, 70000, 65537 * 8}) {
    IpcSignal signal{0xF0001234, 9, 9, std::vector<char>(size)};
    for (std::size_t i = 0; i < size; ++i) signal.data[i] = static_cast<char>(i * 7 + i / 251 + 1);
    const auto frames = cut<n>(signal);
    Transcript expected(frames.size() + 3, "write(1000, " + std::to_string(n + 8) + ")");
    expected[0] = "fstat(1000)";
    expected[1] = "DEBUG Send signal 0xf0001234 with " + std::to_string(frames.size()) + " chunks";
    expected.back() = "DEBUG Data for signal_id '4026536500' has been written!";
    this->happened.clear();
    this->calls.written.clear();
    this->calls.write_result = results[size % 3];
    EXPECT_TRUE(this->writer.transmit_data(signal));
    EXPECT_TRUE(this->happened == expected && this->calls.written == frames) << "for size " << size;
  }
}

using AWriterOf32ByteFrames = AWriter<PayloadSize<24>>;
const std::string gone = "ERROR The TX queue is no longer available! Will try to reopen the port.";

TEST_F(AWriterOf32ByteFrames, ReopensAPortWhoseNodeHasGoneAndSendsAll) {
  ASSERT_TRUE(writer.open("/dev/tx"));
  calls.links = 0;
  happened.clear();
  EXPECT_TRUE(writer.transmit_data({5, 0, 0, {'a'}}));
  EXPECT_EQ(happened,
            (Transcript{"fstat(1000)", gone, "DEBUG Open TX queue '/dev/tx'",
                        "INFO associated file (/dev/tx) already opened, closing it first.", "close(1000)",
                        "stat(/dev/tx)", "open(/dev/tx, 0x101001)", "INFO TX queue '/dev/tx' opened (retries: 0)",
                        "NOTICE Successfully reopened the TX queue", "DEBUG Send signal 0x05 with 1 chunks",
                        "write(1001, 32)", "DEBUG Data for signal_id '5' has been written!"}));
}

TEST_F(AWriterOf32ByteFrames, KeepsThePathOfItsLastSuccessfulOpenAndSendsNothingWithoutAPort) {
  for (const std::string stored : {"", "/dev/tx"}) {
    EXPECT_TRUE(stored.empty() || writer.open(stored));
    calls.failing_opens = 2 * 120;
    EXPECT_FALSE(writer.open("/dev/other"));
    happened.clear();
    EXPECT_FALSE(writer.transmit_data({5, 0, 0, {'a'}}));
    EXPECT_EQ(happened.front(), gone);
    EXPECT_THAT(happened, testing::Contains("ERROR Unable to open TX queue '" + stored + "' after 120 attempts!"));
    EXPECT_EQ(happened.back(), "ERROR Failed to reopen the TX queue!");
    EXPECT_TRUE(calls.written.empty());
  }
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
