#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "descriptor.h"
#include "input_error.h"

namespace keltipc {

constexpr const char* standard_input = "-";

/// Opens a file to read, or standard input. Throws FileError.
Descriptor open_input(const std::string& path);

/// The lines of a file, a FIFO or standard input. Skips empty ones and comments. A line of up to 1 MiB is held.
class InputLines {
 public:
  enum class Kind {
    signals,  ///< each line that begins with # is a comment; the last line may lack its end
    log,      ///< a fault is a line too; a last line without its end was cut off, and is skipped
  };

  /// Called when the input pauses; waits for more, or returns false to end it.
  using Wait = std::function<bool()>;

  /// The descriptor of open_input stays open. Without `on_pause`, read(2) waits.
  InputLines(int input, const std::string& path, Kind its_kind, Wait on_pause = {});

  const std::string input_name;  ///< for messages: "'log'"

  /// Moves to the next line, until which the texts of the last are valid. Returns false at the end. Throws FileError
  /// if the input cannot be read.
  bool next();

  /// As it was read, with its end.
  std::string_view whole_line() const { return line; }

  /// After the end: whether the last line was cut off.
  bool was_cut_off() const { return is_cut_off; }

  /// "'log', line 3"
  std::string place() const { return input_name + ", line " + std::to_string(number); }

  /// What `parse` makes of the line without blanks around it. For an InputError throws a FileError, which names the
  /// place and the text.
  template <typename Parse>
  auto parsed_by(Parse&& parse) const {
    try {
      if (is_too_long) throw InputError("more than 1 MiB");
      return parse(stripped);
    } catch (const InputError& error) {
      throw FileError(place() + ": " + quote(stripped) + ": " + error.what());
    }
  }

 private:
  bool read_line();
  bool read_more();
  bool is_over();
  void make_room();
  void cut(std::size_t length);

  int fd;
  Kind kind;
  Wait wait;
  std::vector<char> buffer = std::vector<char>(std::size_t{64} * 1024);
  std::size_t begin = 0;   ///< of what `next` has not returned yet
  std::size_t filled = 0;  ///< the end of what was read
  std::string_view line;
  std::string_view stripped;  ///< without blanks around it; only the beginning of a line that is too long
  std::size_t number = 0;
  bool is_too_long = false;
  bool is_cut_off = false;
  bool is_at_end = false;  ///< a terminal would let read(2) wait again
  bool was_ended = false;  ///< by `wait`
};

}  // namespace keltipc
