#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "kept_port.h"
#include "output.h"
#include "reception.h"
#include "signal_text.h"
#include "tee.h"

namespace keltipc {

/// What `dump` and `watch` have in common: reads a port in a loop of one thread, and says at the end what came. The
/// library's own reader looks neither at what read(2) gives nor at hang-ups, and sees a request to stop only after
/// 300 ms of quiet: a tool must do better.
class Receiver {
 public:
  /// Opens the ports, or waits for them: what a derived class measures begins after that. Throws InputError.
  explicit Receiver(const ReceiveOptions& options);
  virtual ~Receiver() = default;
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  /// Until a stop signal or a derived class ends it, a port goes, or the reader of standard output goes. Returns the
  /// exit status. To be called once.
  int run();

 protected:
  using Clock = std::chrono::steady_clock;

  // Each call that returns an Outcome ends the loop.

  /// A message came, which `reception` describes, and maybe completed a signal that passes the filters.
  virtual std::optional<Outcome> on_message(std::optional<ecu::vorn::ipc::IpcSignal>&& signal) = 0;

  /// Something was lost or is wrong, before the message that came last.
  virtual std::optional<Outcome> on_fault(const std::string& device, const std::string& fault) = 0;

  /// When `on_time` is to be called next.
  virtual Clock::time_point due() const = 0;
  virtual std::optional<Outcome> on_time() = 0;

  /// Whether messages wait because --tee waits for room, or because this process did not run when `on_time` was due.
  bool was_held_up() const;

  /// The lines for standard error after the end.
  virtual std::string report() { return reception.report(source.device); }

  const FilteredDevice source;
  Reception reception;

 private:
  std::optional<Tee> open_tee() const;
  std::optional<Outcome> turn();
  std::optional<Outcome> read_message();
  std::optional<Outcome> pass_on();
  std::optional<Outcome> take_message();
  std::optional<Outcome> wait();
  std::size_t messages_to_read() const;
  int time_to_wait() const;
  bool can_read() const;
  bool is_passing_on() const { return tee && tee->is_busy(); }
  std::optional<Outcome> look_at(KeptPort& looked_at);
  std::optional<Outcome> lose(KeptPort& gone, const std::string& reason);
  std::optional<Outcome> tell_faults();
  bool finish_message();

  const ReceiveOptions& receive_options;
  Clock::time_point began_waiting = Clock::now();
  KeptPort port;
  std::optional<Tee> tee;
  bool has_hung_up = false;
  std::size_t readable = 0;  ///< messages that can be read before polling again
  Clock::time_point next_look;
  std::vector<char> message;
  std::size_t message_size = 0;
};

}  // namespace keltipc
