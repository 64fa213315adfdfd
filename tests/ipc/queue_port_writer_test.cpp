#include "ipc/queue_port_writer.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/interpose.h"

namespace ecu::vorn::ipc::test {
namespace {

/// The cutting rule, on bare bytes.
template <std::size_t N>
Transcript frames_of(const IpcSignal& signal) {
  Transcript frames;
  signal_t_dyn<N> frame{signal.signal_id, 0, static_cast<std::uint16_t>(signal.data.size()), {}};
  for (std::size_t at = 0; at < signal.data.size(); at += N, ++frame.chunk_index) {
    std::memcpy(frame.data, &signal.data[at], std::min(N, signal.data.size() - at));
    frames.emplace_back(reinterpret_cast<const char*>(&frame), sizeof frame);
  }
  return frames;
}

template <typename Size>
struct AWriter : testing::Test {
  AWriter() { writer.open("/dev/tx"); }

  Transcript happened;
  SystemCalls calls{&happened};
  QueuePortWriter<Size::value> writer;
};
using Sizes = testing::Types<std::integral_constant<std::size_t, 8>, std::integral_constant<std::size_t, 24>,
                             std::integral_constant<std::size_t, 4088>>;
TYPED_TEST_SUITE(AWriter, Sizes, );

TYPED_TEST(AWriter, WritesOneFramePerChunkWhateverTheWritesReturn) {
  constexpr std::size_t n = TypeParam::value;
  for (const std::size_t size : std::vector<std::size_t>{0, 1, n - 1, n, n + 1, 2 * n, 65535, 70000, 65537 * 8}) {
    IpcSignal signal{0xF0001234, 9, 9, std::vector<char>(size)};
    for (std::size_t i = 0; i < size; ++i) signal.data[i] = static_cast<char>(i * 7 + i / 251 + 1);
    this->calls.written.clear();
    this->calls.write_result = static_cast<ssize_t>(size % 3) - 1;
    EXPECT_TRUE(this->writer.transmit_data(signal));
    EXPECT_TRUE(this->calls.written == frames_of<n>(signal)) << "for " << size << " bytes";
  }
}

using AWriterOf32ByteFrames = AWriter<std::integral_constant<std::size_t, 24>>;
const IpcSignal signal{0x1005, 0, 0, std::vector<char>(25)};

TEST_F(AWriterOf32ByteFrames, ChecksThePortOncePerSignal) {
  const RecordedLog log(happened, "ipc.queuewriter");
  happened.clear();
  writer.transmit_data(signal);
  EXPECT_EQ(text(happened), R"(fstat(1000)
DEBUG Send signal 0x1005 with 2 chunks
write(1000, 32)
write(1000, 32)
DEBUG Data for signal_id '4101' has been written!
)");
}

TEST_F(AWriterOf32ByteFrames, ReopensAPortWhoseNodeIsGone) {
  const RecordedLog log(happened, "ipc.queuewriter", 6);
  calls.links = 0;
  happened.clear();
  EXPECT_TRUE(writer.transmit_data(signal));
  EXPECT_EQ(text(happened), R"(fstat(1000)
ERROR The TX queue is no longer available! Will try to reopen the port.
INFO associated file (/dev/tx) already opened, closing it first.
close(1000)
stat(/dev/tx)
open(/dev/tx, 0x101001)
INFO TX queue '/dev/tx' opened (retries: 0)
NOTICE Successfully reopened the TX queue
write(1001, 32)
write(1001, 32)
)");
}

TEST_F(AWriterOf32ByteFrames, ReopensTheLastPortThatItOpened) {
  const RecordedLog log(happened, "ipc.queuewriter", 5);
  calls.failing_opens = 240;
  EXPECT_FALSE(writer.open("/dev/other"));
  happened.clear();
  calls.notes = nullptr;
  EXPECT_FALSE(writer.transmit_data(signal));
  EXPECT_EQ(text(happened), R"(ERROR The TX queue is no longer available! Will try to reopen the port.
ERROR Unable to open TX queue '/dev/tx' after 120 attempts!
ERROR Failed to reopen the TX queue!
)");
  EXPECT_TRUE(calls.written.empty());
}

}  // namespace
}  // namespace ecu::vorn::ipc::test
