#pragma once

#include <map>
#include <string>
#include <vector>

#include "logging/logging.h"

namespace ecu::vorn::logging::_internal {

/// Takes a line's text. Unlike a string stream it gives the text away without a copy.
class LineBuffer : public LogStreambuf {
 public:
  std::string text;

 protected:
  int_type overflow(int_type character) override;
  std::streamsize xsputn(const char* characters, std::streamsize count) override;
};

/// A line under construction and the stream that takes its pieces. Used again for the next line, and keeps its
/// format state.
struct Line {
  explicit Line(int level) : stream(level) { stream.rdbuf(&buffer); }

  LineBuffer buffer;
  LogStream stream;
  std::shared_ptr<LogModule> module;
  bool wanted = false;  ///< decided where the line begins: one switched off in the middle keeps what it has
};

/// A thread's lines, one a level.
struct Lines {
  std::map<int, Line> by_level;
  std::vector<Line*> begun;  ///< the last one is active
};

/// The calling thread's; those that it writes while it runs the sink are apart from those that it had begun before.
Lines& own_lines();

/// The same, but null where the thread has written none.
Lines* existing_lines();

}  // namespace ecu::vorn::logging::_internal
