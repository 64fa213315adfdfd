#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "message_queue.h"

namespace keltipc {

struct PortOptions {
  std::string path;
  std::size_t frame_size;
};

// Both make the port, call `ready` with what it is ("a pseudo-terminal"), and pass messages until SIGINT or SIGTERM,
// which the caller has blocked. Then the port is gone. They throw std::runtime_error with a sentence where they fail.

void run_pty_port(const PortOptions& options, MessageQueue& queue, const std::function<void(const char*)>& ready);

void run_cuse_port(const PortOptions& options, MessageQueue& queue, const std::function<void(const char*)>& ready);

}  // namespace keltipc
