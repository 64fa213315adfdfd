#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>

#include "clock.h"
#include "commands.h"
#include "counted.h"
#include "escape.h"
#include "input_error.h"
#include "receiver.h"
#include "signal_handler.h"
#include "signal_table.h"

namespace keltipc {
namespace {

constexpr std::chrono::seconds refresh(1);

/// 80 columns and 24 rows if the terminal does not tell its size.
winsize terminal_size() {
  winsize size{};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {24, 80, 0, 0};
  return size;
}

/// Not in the middle of a UTF-8 character.
std::string cut(const std::string& line, std::size_t width) {
  if (line.size() <= width) return line;
  while (width > 0 && (static_cast<unsigned char>(line[width]) & 0xC0U) == 0x80) --width;
  return line.substr(0, width);
}

volatile std::sig_atomic_t must_clear = 1;  ///< at first, and when the terminal was resized

class WatchTable : public Receiver {
 public:
  explicit WatchTable(const ReceiveOptions& options) : Receiver(options) { table.start_interval(steady_now()); }

  std::optional<Outcome> on_message(std::optional<ecu::vorn::ipc::IpcSignal>&& signal) override {
    if (signal) table.add(*signal, steady_now());
    return std::nullopt;
  }

  std::optional<Outcome> on_fault(const std::string&, const std::string& fault) override {
    last_fault = fault;
    return std::nullopt;
  }

  Clock::time_point due() const override { return must_clear != 0 ? Clock::time_point() : next_refresh; }

  std::optional<Outcome> on_time() override {
    const bool clears = must_clear != 0;
    must_clear = 0;
    if (Clock::now() >= next_refresh) {
      next_refresh = Clock::now() + refresh;
      close_interval();
    }
    return write_out((clears ? "\x1b[2J" : "") + screen());
  }

 private:
  /// Redraws from the top left corner, and erases what is left of each line and of the screen.
  std::string screen() const {
    const winsize size = terminal_size();
    // Without the last column, where a character would make some terminals wrap.
    const std::size_t width = std::max<std::size_t>(size.ws_col, 2) - 1;
    std::vector<std::string> lines = table.lines(width, steady_now());
    if (!last_fault.empty()) lines.insert(lines.begin(), cut("the last: " + last_fault, width));
    lines.insert(lines.begin(), {cut(head(), width), cut(losses(), width)});
    const std::size_t room = size.ws_row > 2 ? size.ws_row - 1U : 1;
    const std::size_t hidden = lines.size() > room ? lines.size() - room + 1 : 0;
    if (hidden != 0) {
      lines.resize(room - 1);
      lines.push_back("... and " + std::to_string(hidden) + " more");
    }
    std::string text = "\x1b[H";
    for (const std::string& line : lines) text += line + "\x1b[K\n";
    return text + "\x1b[J";
  }

  std::string head() const {
    const Reception::Counts& count = reception.counts();
    std::array<char, 160> numbers{};
    std::snprintf(numbers.data(), numbers.size(), ": %s, %.1f/s; %s, %.1f/s",
                  counted(count.frames, "frame", "frames").c_str(), frame_rate,
                  counted(count.signals, "signal", "signals").c_str(), table.rate());
    return quote(source.device) + numbers.data();
  }

  std::string losses() const {
    const Reception::Counts& count = reception.counts();
    if (count.frames != 0 && count.starts == 0) return "no start frame came";
    const std::string faults = reception.faults();
    return faults.empty() ? "no loss noticed" : "lost or wrong: " + faults;
  }

  void close_interval() {
    const std::uint64_t frames = reception.counts().frames;
    const double length = table.close_interval(steady_now());
    frame_rate = length > 0 ? static_cast<double>(frames - frames_before) / length : 0;
    frames_before = frames;
  }

  SignalTable table;
  std::string last_fault;
  Clock::time_point next_refresh = Clock::now();
  std::uint64_t frames_before = 0;
  double frame_rate = 0;
};

}  // namespace

int watch_signals(const ReceiveOptions& options) {
  if (::isatty(STDOUT_FILENO) != 1) throw InputError("standard output is not a terminal; use 'keltipc dump --stats'");
  handle_signal(SIGWINCH, [](int) { must_clear = 1; });
  return WatchTable(options).run();
}

}  // namespace keltipc
