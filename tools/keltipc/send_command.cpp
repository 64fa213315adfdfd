#include "send_command.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>

#include "exit_status.h"
#include "input_error.h"
#include "ipc/queue_port_writer.h"
#include "open_device.h"
#include "payload_file.h"
#include "say.h"
#include "sender.h"
#include "signal_text.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::IpcSignal;

constexpr const char* from_standard_input = "-";

IpcSignal parse_signal(const std::string& text) {
  SignalText parsed = parse_signal_text(text);
  if (!parsed.file.empty()) parsed.payload = read_payload_file(parsed.file);
  return {parsed.word, 0, 0, std::move(parsed.payload)};
}

/// std::cin shares stdin's buffer, and of what goes wrong there it sees an end only.
bool is_broken(const std::istream& input) { return input.bad() || (&input == &std::cin && std::ferror(stdin) != 0); }

/// Sends the lines as they come. A bad one ends it: what was sent before cannot be taken back.
int send_lines(Sender& sender, std::istream& input) {
  std::string line;
  for (std::size_t number = 1; std::getline(input, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    try {
      const IpcSignal signal = parse_line(number, [&] { return parse_signal(line); });
      if (!sender.send({signal, {}})) return exit_failed;
    } catch (const InputError& error) {
      say(std::string("standard input, ") + error.what());
      return exit_failed;
    }
  }
  if (!is_broken(input)) return exit_done;
  say("standard input cannot be read");
  return exit_failed;
}

/// What is to be sent, all of it checked; nothing stands for the lines of standard input.
using Items = std::vector<std::optional<Outgoing>>;

Items signals_from_arguments(const SendOptions& options) {
  Items items;
  if (!options.frame_start.empty()) {
    items.push_back(Outgoing{start_signal(parse_frame_start(options.frame_start)), {}});
  }
  for (const std::string& text : options.signals) {
    items.push_back(text == from_standard_input ? std::nullopt : std::optional(Outgoing{parse_signal(text), {}}));
  }
  return items;
}

std::vector<Outgoing> read_log(const SendOptions& options) {
  const std::uint32_t start_id = options.frame_start.empty() ? 0 : parse_frame_start_id(options.frame_start);
  std::ifstream file;
  const bool named = options.replay != from_standard_input;
  if (named) file.open(options.replay);
  if (!file) throw InputError(std::strerror(errno));
  std::istream& log = named ? file : std::cin;
  std::vector<Outgoing> plan = plan_replay(log, start_id);
  if (is_broken(log)) throw InputError(std::strerror(errno));
  return plan;
}

Items signals_from_log(const SendOptions& options) {
  try {
    Items items;
    for (Outgoing& outgoing : read_log(options)) {
      if (options.no_timing) outgoing.pause = {};
      items.emplace_back(std::move(outgoing));
    }
    return items;
  } catch (const InputError& error) {
    throw InputError(options.replay, error.what());
  }
}

int send_items(Sender& sender, const Items& items) {
  for (const auto& item : items) {
    const int status = !item ? send_lines(sender, std::cin) : sender.send(*item) ? exit_done : exit_failed;
    if (status != exit_done) return status;
  }
  return exit_done;
}

template <std::size_t N>
int send_to_port(const SendOptions& options, const Items& items) {
  ecu::vorn::ipc::QueuePortWriter<N> writer;
  if (!writer.open(options.device)) {
    say(quote(options.device) + " cannot be opened");
    return exit_failed;
  }
  const auto transmit = [&](const IpcSignal& signal) {
    if (writer.transmit_data(signal)) return true;
    say(quote(options.device) + " has gone: the signal was not sent");
    return false;
  };
  Sender sender(transmit, std::chrono::milliseconds(options.gap));
  return send_items(sender, items);
}

}  // namespace

int send_signals(const SendOptions& options) {
  if (options.replay.empty() && options.signals.empty()) {
    throw InputError(options.device, "nothing to send: give SIGNALs, '-' or --replay FILE");
  }
  const Items items = options.replay.empty() ? signals_from_arguments(options) : signals_from_log(options);
  set_up_logging(options.port.log_level);
  // The writer opens it for itself, and does not say why it cannot.
  if (!open_device(options.device, O_WRONLY, options.port.wait)) return exit_timed_out;
  return with_payload_size(options.port.frame, [&](auto n) { return send_to_port<n>(options, items); });
}

}  // namespace keltipc
