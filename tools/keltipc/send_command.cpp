#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "commands.h"
#include "exit_status.h"
#include "graceful_stop.h"
#include "hex.h"
#include "input_error.h"
#include "input_lines.h"
#include "port_setup.h"
#include "replay.h"
#include "say.h"
#include "sender.h"
#include "signal_text.h"

namespace keltipc {
namespace {

using std::chrono::milliseconds;

/// Parses a line, or a SIGNAL of the command line. Throws InputError.
using Parser = std::function<std::vector<Outgoing>(std::string_view)>;

std::vector<char> read_payload_file(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
  if (file == nullptr) throw InputError(path, std::strerror(errno));
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
}

Parser make_parser(const SendOptions& options) {
  if (options.replay.empty()) return parse_signal;
  const std::uint32_t start_id =
      options.frame_start.empty() ? 0 : parse_named(parse_frame_start_id, options.frame_start, "--frame-start: ");
  const std::chrono::duration<double> max_pause(options.max_pause);
  return [replay = Replay(start_id, options.no_timing ? 0 : options.speed, max_pause)](
             std::string_view line) mutable { return replay.next(line); };
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

/// The lines to send: a log, or standard input.
struct Input {
  std::string path;
  InputLines::Kind kind;
  Parser parser;  ///< to be copied for each pass: that of a log remembers the lines before
  Descriptor file = open_input(path);
  bool is_regular = path != standard_input && std::filesystem::is_regular_file(path);  ///< can be read twice

  InputLines lines() const { return {file.get(), path, kind}; }
};

/// Nothing if all that is to be sent is on the command line.
std::optional<Input> find_input(const SendOptions& options) {
  using Kind = InputLines::Kind;
  const bool is_log = !options.replay.empty();
  if (!is_log && !reads_standard_input(options)) return std::nullopt;
  Input input{is_log ? options.replay : standard_input, is_log ? Kind::log : Kind::signals, make_parser(options)};
  if (!input.is_regular && options.repeat != 1) {
    throw InputError("--repeat needs a SIGNAL or a FILE: " + input.lines().input_name + " can be read only once");
  }
  return input;
}

void warn_if_cut_off(const InputLines& lines) {
  if (lines.was_cut_off()) say("warning: " + lines.place() + ": cut off (no line end), not sent");
}

/// Checks the whole log before anything is sent. Reads it once more for that, because it may be larger than the
/// memory.
void check_log(const Input& input) {
  Parser parse = input.parser;
  InputLines lines = input.lines();
  while (lines.next()) lines.parsed_by(parse);
  warn_if_cut_off(lines);
}

/// A bad line ends it with status 1, not 2: what was sent before cannot be taken back.
void send_lines(const Input& input, Sender& sender) {
  Parser parse = input.parser;
  if (input.is_regular) ::lseek(input.file.get(), 0, SEEK_SET);
  InputLines lines = input.lines();
  try {
    while (lines.next()) {
      for (const Outgoing& outgoing : lines.parsed_by(parse)) sender.send(outgoing);
    }
  } catch (const InputError& error) {
    throw std::runtime_error(error.what());
  }
  if (!input.is_regular) warn_if_cut_off(lines);
}

}  // namespace

int send_signals(const SendOptions& options) {
  stop_gracefully();
  require_device(options.device);
  require_something_to_send(options);
  const std::vector<Outgoing> opening = opening_frame(options);
  const std::vector<Outgoing> signals = read_arguments(options);
  const std::optional<Input> input = find_input(options);
  if (input && input->is_regular) check_log(*input);

  // The library's writer opens the device itself, but it always retries for 60 s and does not say why it cannot open
  // it. So wait for the device here, as --wait says; this descriptor is closed again before the writer opens its own.
  if (!open_device(options.device, O_WRONLY, options.port.wait)) return exit_timed_out;
  Sender sender(options.device, options.port.frame, {milliseconds(options.gap), milliseconds(options.interval)},
                options.port.log_level);
  for (const Outgoing& outgoing : opening) sender.send(outgoing);
  for (unsigned int round = 0; round < options.repeat; ++round) {
    for (const Outgoing& outgoing : signals) sender.send(outgoing);
    if (input) send_lines(*input, sender);
  }
  return exit_done;
}

}  // namespace keltipc
