#pragma once

#include <chrono>
#include <string_view>
#include <utility>

#include "kept_port.h"

namespace keltipc {

/// Passes messages on to a port, byte for byte.
class Tee {
 public:
  explicit Tee(KeptPort opened) : port(std::move(opened)) {}

  /// Takes the next message, after the one before was passed on. `bytes` must stay valid while `is_busy`.
  void begin(std::string_view bytes) {
    message = bytes;
    passed = 0;
  }

  /// Whether a message is not yet passed on, or not all of it.
  bool is_busy() const { return passed < message.size(); }

  /// Writes what the port takes without waiting. Returns the error number if it fails.
  int advance();

  /// Waits until the message is passed on, but not longer than that.
  void finish_within(std::chrono::milliseconds limit);

  /// The port that comes back gets the whole message, if it is not yet passed on.
  void close() {
    port.close();
    if (is_busy()) passed = 0;
  }

  KeptPort port;

 private:
  std::string_view message;
  std::size_t passed = 0;
};

}  // namespace keltipc
