#include <unistd.h>

#include <chrono>
#include <sstream>
#include <utility>

#include "commands.h"
#include "escape.h"
#include "exit_status.h"
#include "hex.h"
#include "log_record.h"
#include "receiving_client.h"
#include "signal_table.h"

namespace keltipc {
namespace {

using ecu::vorn::ipc::IpcSignal;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// How many bytes of a payload are shown on a terminal.
constexpr std::size_t shown_on_terminal = 64;

microseconds utc_now() {
  return std::chrono::duration_cast<microseconds>(std::chrono::system_clock::now().time_since_epoch());
}

/// Turns signals and frames, as they come, into lines without their ends.
class LineWriter {
 public:
  enum class Form { log, json, utc, since_last, since_start };

  /// `cuts`: shortens long payloads in the forms for people. Times since the start count from here.
  LineWriter(Form line_form, bool cuts, std::string device_name);

  std::string signal_line(ecu::vorn::ipc::IpcSignal&& signal);
  std::string frame_line(const Frame& frame);

 private:
  std::string prefix();
  std::string json_frame(const Frame& frame) const;
  std::string cut(std::vector<char>& payload) const;

  Form form;
  bool cuts_payloads;
  std::string device;
  std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();
};

LineWriter::LineWriter(Form line_form, bool cuts, std::string device_name)
    : form(line_form), cuts_payloads(cuts), device(std::move(device_name)) {}

std::string LineWriter::prefix() {
  if (form == Form::log) return "(" + seconds_text(utc_now()) + ") " + escape_word(device) + " ";
  if (form == Form::utc) return utc_text(utc_now()) + "  ";
  const auto now = steady_clock::now();
  const auto elapsed = std::chrono::duration_cast<microseconds>(now - since);
  if (form == Form::since_last) since = now;
  return seconds_text(elapsed) + "  ";
}

/// Shortens the payload if it is too long for a terminal. Returns the text that closes it.
std::string LineWriter::cut(std::vector<char>& payload) const {
  const std::size_t length = payload.size();
  if (!cuts_payloads || length <= shown_on_terminal) return "}";
  payload.resize(shown_on_terminal);
  return "... } (" + std::to_string(length) + " bytes)";
}

std::string LineWriter::signal_line(IpcSignal&& signal) {
  if (form == Form::log) return to_log_line({utc_now(), device, std::move(signal)});
  if (form == Form::json) return to_json_line({utc_now(), device, std::move(signal)});
  std::ostringstream line;
  const std::string end = cut(signal.data);
  line << prefix() << signal;
  std::string text = line.str();
  return text.replace(text.size() - 1, 1, end);
}

std::string LineWriter::frame_line(const Frame& frame) {
  if (form == Form::json) return json_frame(frame);
  std::string line = prefix();
  if (!frame.is_short) {
    line += to_hex(frame.id) + ": " + to_hex(frame.status) + ", chunk " + std::to_string(frame.chunk) + " of " +
            std::to_string(frame.total_size) + " bytes ";
  }
  std::vector<char> payload = frame.payload;
  const std::string end = cut(payload);
  line += "{ ";
  for (const char byte : payload) {
    append_hex_byte(line, byte);
    line += ' ';
  }
  line += end;
  return frame.mark.empty() ? line : line + "  " + frame.mark;
}

std::string LineWriter::json_frame(const Frame& frame) const {
  std::string line = "{\"time\":" + seconds_text(utc_now()) + ",\"device\":" + json_string(device);
  if (!frame.is_short) {
    line += ",\"id\":\"" + to_hex(frame.id) + "\",\"status\":" + std::to_string(frame.status);
    line += ",\"chunk\":" + std::to_string(frame.chunk) + ",\"total_size\":" + std::to_string(frame.total_size);
  }
  line += ",\"data\":\"";
  append_payload(line, frame.payload);
  line += "\"";
  if (!frame.mark.empty()) line += ",\"mark\":" + json_string(frame.mark);
  return line + "}";
}

LineWriter make_line_writer(const DumpOptions& options, const std::string& device) {
  using Form = LineWriter::Form;
  const bool on_terminal = ::isatty(STDOUT_FILENO) == 1;
  if (options.json) return {Form::json, false, device};
  if (options.log || (options.time.empty() && !on_terminal)) return {Form::log, false, device};
  const Form form = options.time == "d" ? Form::since_last : options.time == "z" ? Form::since_start : Form::utc;
  return {form, on_terminal, device};
}

class Dump : public ReceivingClient {
 public:
  explicit Dump(const DumpOptions& dump_options)
      : ReceivingClient(dump_options), options(dump_options), writer(make_line_writer(dump_options, source.device)) {}

  std::optional<Outcome> on_message(const char* bytes, std::size_t size) override {
    auto signal = signal_from(bytes, size);
    if (signal && options.stats) table.add(*signal);
    if (options.frames) return print_frame();
    return signal ? print(writer.signal_line(std::move(*signal))) : std::nullopt;
  }

  Clock::time_point due() const override {
    return options.idle == 0 ? Clock::time_point::max() : quiet_since + milliseconds(options.idle);
  }

  std::optional<Outcome> on_time() override { return Outcome{lines == 0 ? exit_timed_out : exit_done, {}}; }

 private:
  std::optional<Outcome> print_frame() {
    const Frame& frame = reception.frame();
    if (!frame.is_short && !passes_filters(frame.id, frame.status)) return std::nullopt;
    return print(writer.frame_line(frame));
  }

  std::optional<Outcome> print(const std::string& line) {
    if (auto outcome = write_out(line + "\n")) return outcome;
    quiet_since = Clock::now();
    if (++lines == options.count) return Outcome{exit_done, {}};
    return std::nullopt;
  }

  std::string report() override {
    std::string text = ReceivingClient::report();
    if (!options.stats) return text;
    table.close_interval();
    for (const std::string& line : table.lines(0)) text += line + "\n";
    return text;
  }

  const DumpOptions& options;
  LineWriter writer;
  SignalTable table;
  std::uint64_t lines = 0;
  Clock::time_point quiet_since = Clock::now();
};

}  // namespace

int dump_signals(const DumpOptions& options) { return Dump(options).run(); }

}  // namespace keltipc
