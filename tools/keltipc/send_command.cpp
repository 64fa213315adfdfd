#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "commands.h"
#include "exit_status.h"
#include "hex.h"
#include "input_error.h"
#include "port_setup.h"
#include "replay.h"
#include "say.h"
#include "sender.h"
#include "signal_text.h"

namespace keltipc {
namespace {

constexpr const char* standard_input = "-";

/// Parses a line, or a SIGNAL of the command line. Throws InputError.
using Parser = std::function<std::vector<Outgoing>(std::string_view)>;

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File open_file(const std::string& path) {
  File file(std::fopen(path.c_str(), "re"), std::fclose);
  if (file == nullptr) throw InputError(path, std::strerror(errno));
  return file;
}

std::vector<char> read_payload_file(const std::string& path) {
  const File file = open_file(path);
  std::vector<char> payload(longest_payload + 1);  // One more, to tell a file that is too long.
  payload.resize(std::fread(payload.data(), 1, payload.size(), file.get()));
  if (std::ferror(file.get()) != 0) throw InputError(path, std::strerror(errno));
  if (payload.size() > longest_payload) throw InputError(path, "more than 65535 bytes");
  return payload;
}

/// "5a#0aff", or "start 0=1" for a start frame
std::vector<Outgoing> parse_signal(std::string_view text) {
  constexpr std::string_view start = "start ";
  if (text.substr(0, start.size()) == start) {
    return {{start_signal(parse_frame_start(without_blanks_around(text.substr(start.size())))), {}, true}};
  }
  SignalText parsed = parse_signal_text(text);
  if (!parsed.file.empty()) parsed.payload = read_payload_file(parsed.file);
  return {{{parsed.word, 0, 0, std::move(parsed.payload)}}};
}

/// The lines of an input, without blanks around them. Skips those that are empty or begin with '#'.
class InputLines {
 public:
  enum class LastLine { may_lack_its_end, must_be_whole };

  InputLines(std::FILE* input, std::string input_name, LastLine last)
      : file(input), name(std::move(input_name)), last_line(last) {}
  ~InputLines() { std::free(buffer); }
  InputLines(const InputLines&) = delete;
  InputLines& operator=(const InputLines&) = delete;

  /// Moves to the next line; false at the end. Throws InputError when the input cannot be read.
  bool next() {
    ssize_t length = 0;
    errno = 0;
    while ((length = ::getline(&buffer, &capacity, file)) > 0) {
      ++number;
      const std::string_view line(buffer, static_cast<std::size_t>(length));
      text = without_blanks_around(line);
      if (text.empty() || text.front() == '#') continue;
      if (line.back() == '\n' || last_line == LastLine::may_lack_its_end) return true;
      say("warning: " + name + ", line " + std::to_string(number) + ": cut off (no line end), not sent");
    }
    // Not ferror(3), which says nothing of a line that is too long for the memory.
    if (std::feof(file) == 0) throw InputError(name + " cannot be read: " + std::strerror(errno));
    return false;
  }

  /// What `parse` makes of the line.
  std::vector<Outgoing> parsed_by(const Parser& parse) const {
    try {
      return parse(text);
    } catch (const InputError& error) {
      throw InputError(name + ", line " + std::to_string(number) + ": " + quote(text) + ": " + error.what());
    }
  }

 private:
  std::FILE* file;
  std::string name;
  LastLine last_line;
  char* buffer = nullptr;
  std::size_t capacity = 0;
  std::string_view text;
  std::size_t number = 0;
};

bool reads_standard_input(const SendOptions& options) {
  if (!options.replay.empty()) return options.replay == standard_input;
  return !options.signals.empty() && options.signals.back() == standard_input;
}

/// The first word is the device. If the user forgot it, the first word is a SIGNAL.
void require_device(const std::string& device) {
  const bool is_signal = device == standard_input || device.find('#') != std::string::npos;
  if (is_signal && ::access(device.c_str(), F_OK) != 0) {
    throw InputError(device, "this is a SIGNAL, and the DEVICE before it is missing");
  }
}

void require_something_to_send(const SendOptions& options) {
  if (options.replay.empty() && options.signals.empty() && options.frame_start.empty()) {
    throw InputError("nothing to send: give a SIGNAL, -, --frame-start or --replay");
  }
  if (options.repeat != 1 && reads_standard_input(options)) {
    throw InputError("--repeat needs a SIGNAL or a FILE: standard input can be read only once");
  }
}

Parser make_parser(const SendOptions& options) {
  if (options.replay.empty()) return parse_signal;
  const std::uint32_t start_id =
      options.frame_start.empty() ? 0 : parse_named(parse_frame_start_id, options.frame_start, "--frame-start: ");
  return [replay = Replay(start_id, options.no_timing ? 0 : options.speed)](std::string_view line) mutable {
    return replay.next(line);
  };
}

/// The start frame that goes before the SIGNALs, if one is asked for.
std::vector<Outgoing> opening_frame(const SendOptions& options) {
  if (!options.replay.empty() || options.frame_start.empty()) return {};
  return {{start_signal(parse_named(parse_frame_start, options.frame_start, "--frame-start: ")), {}, true}};
}

std::vector<Outgoing> read_arguments(const SendOptions& options) {
  std::vector<Outgoing> result;
  for (const std::string& text : options.signals) {
    if (text == standard_input && &text == &options.signals.back()) break;
    if (text == standard_input) throw InputError(text, "must be the last SIGNAL");
    for (Outgoing& outgoing : parse_named(parse_signal, text)) result.push_back(std::move(outgoing));
  }
  return result;
}

std::vector<Outgoing> read_log(const std::string& path, const Parser& parse) {
  if (path == standard_input) return {};
  const File file = open_file(path);
  InputLines lines(file.get(), quote(path), InputLines::LastLine::must_be_whole);
  std::vector<Outgoing> result;
  while (lines.next()) {
    for (Outgoing& outgoing : lines.parsed_by(parse)) result.push_back(std::move(outgoing));
  }
  return result;
}

/// A bad line ends it with status 1, not 2: what was sent before cannot be taken back.
void send_standard_input(Sender& sender, const Parser& parse, InputLines::LastLine last_line) {
  InputLines lines(stdin, "standard input", last_line);
  try {
    while (lines.next()) {
      for (const Outgoing& outgoing : lines.parsed_by(parse)) sender.send(outgoing);
    }
  } catch (const InputError& error) {
    throw std::runtime_error(error.what());
  }
}

}  // namespace

int send_signals(const SendOptions& options) {
  require_device(options.device);
  require_something_to_send(options);
  const Parser parse = make_parser(options);
  const std::vector<Outgoing> opening = opening_frame(options);
  const bool is_replay = !options.replay.empty();
  const std::vector<Outgoing> signals = is_replay ? read_log(options.replay, parse) : read_arguments(options);

  // The library's writer opens the device itself, but it always retries for 60 s and does not say why it cannot open
  // it. So wait for the device here, as --wait says; this descriptor is closed again before the writer opens its own.
  if (!open_device(options.device, O_WRONLY, options.port.wait)) return exit_timed_out;
  Sender sender(options.device, options.port.frame, std::chrono::milliseconds(options.gap), options.port.log_level);
  for (const Outgoing& outgoing : opening) sender.send(outgoing);
  for (unsigned int round = 0; round < options.repeat; ++round) {
    for (const Outgoing& outgoing : signals) sender.send(outgoing);
  }
  if (reads_standard_input(options)) {
    using LastLine = InputLines::LastLine;
    send_standard_input(sender, parse, is_replay ? LastLine::must_be_whole : LastLine::may_lack_its_end);
  }
  return exit_done;
}

}  // namespace keltipc
