// Tests an application with GoogleTest, without a port and without systemd: application_test
// docs/testing.md lists other ways. without_bus.cpp does the same for an application that controls units.
#include <gtest/gtest.h>
#include <ipc/data_source.h>
#include <ipc/signal_processor.h>

#include <memory>
#include <vector>

using namespace ecu::vorn::ipc;

namespace {

// The application's code: it takes signals from any source, for example the reader of a port.
class Display : public IDataConsumer<IpcSignal> {
 public:
  void consume(IpcSignal&& signal) override {
    if (signal.signal_id == 0x5a && signal.data.size() == 1) speed = static_cast<unsigned char>(signal.data[0]);
    is_stale = false;
  }
  void on_timeout() override { is_stale = true; }

  int speed = 0;
  bool is_stale = true;
};

// A source of signals, in place of QueuePortReader. An empty signal stands for a quiet period.
class FakeSource : public IDataSource<IpcSignal> {
 public:
  void set_consumer(std::unique_ptr<IDataConsumer<IpcSignal>> new_consumer) override {
    consumer = std::move(new_consumer);
  }
  void receive_data() override {
    for (IpcSignal& signal : signals)
      signal.data.empty() ? consumer->on_timeout() : consumer->consume(std::move(signal));
  }

  std::vector<IpcSignal> signals;

 private:
  std::unique_ptr<IDataConsumer<IpcSignal>> consumer;
};

TEST(Display, IsStaleAfterAQuietPeriod) {
  FakeSource source;
  source.signals = {{0x5a, 0, 1, {50}}, {}};
  auto* const display = new Display;
  source.set_consumer(std::unique_ptr<Display>(display));
  source.receive_data();
  EXPECT_EQ(display->speed, 50);
  EXPECT_TRUE(display->is_stale);
}

// Frames as they are on the wire, to test what happens when some are lost: here the end of a signal is missing, and
// the next start frame discards its beginning.
TEST(Display, IgnoresAnIncompleteSignal) {
  SignalProcessor<8> processor(0);
  Display display;
  const signal_t_dyn<8> frames[] = {{0, 0, 8, {1}}, {0x5a, 0, 9, {99}}, {0, 0, 8, {2}}, {0x5a, 0, 1, {30}}};
  for (const signal_t_dyn<8>& frame : frames) {
    processor.process(signal_t_dyn<8>(frame));
    if (processor.get_state() == SignalProcessor<8>::STATE_COMPLETE) display.consume(std::move(*processor.take()));
  }
  EXPECT_EQ(display.speed, 30);
}

}  // namespace
