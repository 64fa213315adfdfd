#include "watch.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "common_options.h"
#include "stop_signals.h"
#include "escape.h"

namespace keltipc {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds between_looks(1000);
constexpr milliseconds time_to_end(1000);
constexpr int by_signal = 128;

}  // namespace

BlockedSignals::BlockedSignals() {
  const sigset_t signals = stop_signals();
  ::pthread_sigmask(SIG_BLOCK, &signals, &before);
}

BlockedSignals::~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }

Watch::Watch(const BlockedSignals& /*blocked*/, Watched watched_things)
    : watched(std::move(watched_things)),
      signal_fd(open_stop_signals()),
      loop_ended(checked_descriptor("eventfd", ::eventfd(0, EFD_CLOEXEC))),
      thread([this] { run(); }) {}

Watch::~Watch() { finish(); }

std::optional<Ending> Watch::finish() {
  if (thread.joinable()) {
    ::eventfd_write(loop_ended.get(), 1);
    thread.join();
  }
  return ending;
}

void Watch::run() {
  while (!ending) {
    const Event event = wait(time_to_next_look());
    if (event == Event::loop_ended) return;
    ending = event == Event::signal ? ending_for_signal() : look();
  }
  end_loop();
}

Watch::Event Watch::wait(milliseconds time) {
  std::array<pollfd, 3> sources{{{loop_ended.get(), POLLIN, 0}, {signal_fd.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
  if (ending) sources[2].fd = -1;  // A closed one would cut the wait for the loop's end short.
  ::poll(sources.data(), sources.size(), static_cast<int>(time.count()));
  if (sources[0].revents != 0) return Event::loop_ended;
  return sources[1].revents != 0 ? Event::signal : Event::none;
}

milliseconds Watch::time_to_next_look() const {
  if (!watched.longest_quiet) return between_looks;
  return std::clamp(*watched.longest_quiet - watched.output.quiet_time(), milliseconds(1), between_looks);
}

std::optional<Ending> Watch::look() const {
  if (LineOutput::is_closed()) return Ending(exit_done);
  if (auto loss = watched.node.loss()) return loss;
  if (!watched.longest_quiet || watched.output.quiet_time() < *watched.longest_quiet) return std::nullopt;
  if (watched.output.count() != 0) return Ending(exit_done);
  return Ending(exit_timed_out, "no signal came from " + quote(watched.node.path));
}

std::optional<Ending> Watch::ending_for_signal() {
  signalfd_siginfo info{};
  if (::read(signal_fd.get(), &info, sizeof info) != sizeof info) return std::nullopt;
  return Ending(by_signal + static_cast<int>(info.ssi_signo));
}

/// Another signal while the loop is given its second means: at once.
void Watch::end_loop() {
  watched.stop();
  if (wait(time_to_end) == Event::loop_ended) return;
  watched.output.close_for_good();
  ::_exit(report(*ending, watched.output));
}

int report(const Ending& ending, const LineOutput& output) {
  const std::uint64_t count = output.count();
  if (!ending.sentence.empty()) say(ending.sentence);
  if (ending.status > by_signal) say(std::to_string(count) + (count == 1 ? " signal" : " signals"));
  return ending.status;
}

}  // namespace keltipc
