#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "descriptor.h"

namespace keltipc {

/// How a command ends: its exit status, and a sentence for standard error, or an empty one.
struct Outcome {
  int status;
  std::string sentence;
  bool is_quiet = false;  ///< nobody reads what it prints, so nothing more is said
};

/// Writes all of `text` to standard output. Returns nothing on success, else how the command ends: quietly if nobody
/// reads it, with 128 + n after stop signal n, which also interrupts a write that blocks.
std::optional<Outcome> write_out(std::string_view text);

/// Receives a port's messages. Each call that returns an Outcome ends the loop.
class PortClient {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~PortClient() = default;

  /// What one read(2) gave: a frame, or less.
  virtual std::optional<Outcome> on_message(const char* bytes, std::size_t size) = 0;

  /// When `on_time` is to be called next.
  virtual Clock::time_point due() const = 0;
  virtual std::optional<Outcome> on_time() = 0;

  /// The port has gone: the rest of a signal that was half received never comes.
  virtual void on_loss() = 0;
};

/// The loop of one thread that reads a port. The library's own reader looks neither at what read(2) gives nor at
/// hang-ups, and sees a request to stop only after 300 ms of quiet: a tool must do better.
class PortLoop {
 public:
  struct Port {
    std::string device;
    std::size_t frame_size;
    bool follow;  ///< wait for a port that has gone to come back
  };

  PortLoop(Port described, Descriptor opened, PortClient& its_client);

  /// Runs until a stop signal or the client ends it, the port goes, or the reader of standard output goes.
  Outcome run();

 private:
  std::optional<Outcome> turn();
  int time_to_wait() const;
  std::optional<Outcome> read_message(bool has_hung_up);
  std::optional<Outcome> look_at_node();
  std::optional<Outcome> lose(const std::string& reason);
  void reopen();

  Port port;
  std::optional<Descriptor> device;  ///< empty while the port is gone
  PortClient& client;
  std::vector<char> message;
};

}  // namespace keltipc
