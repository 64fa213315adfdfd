#include "trace.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hex.h"
#include "stop.h"

namespace keltipc {
namespace {

/// Header fields apart from the data: "5a 00 00 00  00 00  14 00  41 42 43 ..."
std::string in_hex(const std::string& message) {
  std::string line;
  for (std::size_t i = 0; i < message.size(); ++i) {
    const bool begins_field = i == 4 || i == 6 || i == 8;
    line += i == 0 ? "" : begins_field ? "  " : " ";
    append_hex_byte(line, message[i]);
  }
  return line + "\n";
}

}  // namespace

void Trace::show(const std::string& message) {
  if (left == 0) return;
  --left;
  if (write_unless_stopped(STDOUT_FILENO, in_hex(message))) return;
  left = 0;
  say(std::string("the trace ends here: ") + std::strerror(errno));
}

}  // namespace keltipc
