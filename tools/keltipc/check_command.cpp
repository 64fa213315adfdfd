#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "check_port.h"
#include "check_table.h"
#include "input_error.h"
#include "ipc/signal_frame.h"
#include "ipc/utils.h"
#include "port_users.h"
#include "say.h"
#include "signal_text.h"

namespace keltipc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::this_thread::sleep_for;
using Clock = std::chrono::steady_clock;

constexpr milliseconds at_once(0);

class PortCheck {
 public:
  PortCheck(const CheckOptions& given, std::uint32_t id)
      : options(given), identifier(id), table(given), port(given, table) {}

  int run() {
    try {
      try_rows();
      return table.end("two messages did not wait at once") ? exit_done : exit_failed;
    } catch (const InputError&) {
      table.answer("character device", false, "no");
      table.end("not a character device");
      return exit_failed;
    } catch (const CannotGoOn& reason) {
      answer_sizes();
      if (port.reader || port.writer) table.end(reason.what());
      return reason.status;
    }
  }

 private:
  void try_rows() {
    const bool only_sends = !options.send.empty();
    only_sends ? port.open_to_write() : port.open_to_read();
    table.answer("character device", true, "yes");
    table.answer("link count", port.link_count() != 0, std::to_string(port.link_count()));
    table.answer("other names", port.link_count() < 2, port.link_count() < 2 ? "none" : "yes");
    name_port_users(options.device);
    if (!only_sends) say("warning: messages that are read now do not reach the application");
    if (!options.receive) say("warning: no frame is harmless: a receiver that runs takes these for signals");
    if (port.reader) try_silence();
    try_second_open();
    if (options.loop_back) port.open_to_write();
    if (port.reader) try_messages();
    for (int i = 0; only_sends && i < 3; ++i) write_frame();
    answer_sizes();
    if (port.reader) try_non_blocking();
    if (options.loop_back) try_other_writes();
    if (options.removal) try_removal();
  }

  void try_second_open() {
    const bool is_allowed = port.open_again().has_value();
    table.answer("second open", is_allowed, is_allowed ? "allowed" : port.call_text);
    if (!is_allowed && options.loop_back) throw CannotGoOn("a second open is refused", exit_failed);
  }

  void try_non_blocking() {
    const auto second = port.open_again();
    if (!second) return table.not_tried("O_NONBLOCK", "a second open is refused");
    if (port.is_readable(at_once)) return table.not_tried("O_NONBLOCK", "messages wait");
    port.read("O_NONBLOCK", *second, frame_size);
    table.answer("O_NONBLOCK", true, "read: " + port.call_text);
  }

  /// A signal of one frame. The payload of the first is line ends, for which a terminal may wait.
  std::string make_frame(std::size_t number) const {
    std::string bytes(frame_size, static_cast<char>(number + '\n'));
    const ecu::vorn::ipc::signal_t_dyn<8> header{identifier, 0, static_cast<std::uint16_t>(frame_size - 8), {}};
    std::memcpy(bytes.data(), &header, 8);
    return bytes;
  }

  void write_frame() {
    if (!port.write(make_frame(sent++))) port.differs("size of a write", port.call_text);
  }

  void answer_sizes() {
    const std::string size = std::to_string(frame_size) + " bytes";
    if (port.received != 0) table.answer(CheckedPort::reading, true, "longest " + us_text(port.longest_read));
    if (port.received != 0) table.answer("size of a read", true, size);
    if (sent != 0) table.answer("size of a write", true, size);
  }

  void try_silence() {
    while (port.received < options.depth_limit && port.is_readable(at_once)) port.read_frame();
    table.answer("messages at the start", true,
                 std::to_string(port.received) + (port.received == options.depth_limit ? " or more" : ""));
    for (const auto end = Clock::now() + seconds(5); Clock::now() < end; port.read_frame()) {
      if (!port.is_readable(milliseconds(300))) return table.answer("poll in silence", true, "0 after 300 ms");
    }
    table.answer("poll in silence", false, "never 0 in 5 s");
    if (options.loop_back) throw CannotGoOn("the port is never quiet", exit_failed);
  }

  /// Reads the next message, which in loop-back is the first one on the way.
  void take_frame() {
    if (!port.is_readable(milliseconds(options.idle))) {
      table.answer("what comes back", false, port.received == 0 ? "nothing" : "a frame is missing");
      throw CannotGoOn("nothing came within --idle", port.received == 0 ? exit_timed_out : exit_failed);
    }
    const bool is_same = port.read_frame() == make_frame(taken++);
    if (port.writer && !is_same) port.differs("what comes back", "another frame");
  }

  void try_messages() {
    if (port.writer) write_frame();
    take_frame();
    if (port.writer)
      ::fcntl(port.writer->get(), F_SETFL, O_NONBLOCK);  // From here on, a write fails if it would wait.
    try_two();
    options.receive ? try_rate() : try_delay();
    table.answer("what comes back", true, std::to_string(taken) + " frames");
  }

  /// In loop-back, where the port may hold one message only.
  void write_two() {
    if (!port.writer) return;
    write_frame();
    if (port.write(make_frame(sent))) ++sent;
  }

  /// Messages wait while nobody reads: for longer each time, because it is up to the sender when two do.
  void try_two() {
    milliseconds pause(50);
    do {
      if ((pause *= 2).count() > options.idle) return;
      write_two();
      sleep_for(pause);
      take_frame();
    } while (!port.is_readable(at_once));
    take_frame();
    table.answer("two messages wait", true, "one a read");
    try_double_read(pause);
  }

  void try_double_read(milliseconds pause) {
    write_two();
    sleep_for(pause);
    const bool is_there = port.is_readable(at_once);
    std::size_t got = is_there ? port.read(CheckedPort::reading, *port.reader, 2 * frame_size).size() : 0;
    if (got > frame_size || (is_there && port.is_readable(at_once))) {
      table.answer("read of twice the size", true, std::to_string(got) + " bytes");
    }
    // In loop-back the rest must not stay. Non-blocking, because a pseudo-terminal may have cut a message.
    const auto rest = port.open_again();
    const auto end = Clock::now() + milliseconds(options.idle);
    for (; rest && got < (sent - std::min(sent, taken)) * frame_size && Clock::now() < end;
         sleep_for(milliseconds(1))) {
      got += port.read(CheckedPort::reading, *rest, frame_size).size();
    }
    taken = sent;
  }

  void try_rate() {
    const unsigned int before = port.received;
    for (const auto end = Clock::now() + seconds(1); Clock::now() < end;) {
      if (port.is_readable(milliseconds(100))) port.read_frame();
    }
    table.answer("messages a second", true, std::to_string(port.received - before));
  }

  void try_delay() {
    std::vector<Clock::duration> delays(100);
    for (Clock::duration& delay : delays) {
      const auto begin = Clock::now();
      write_frame();
      take_frame();
      delay = Clock::now() - begin;
    }
    std::sort(delays.begin(), delays.end());
    table.answer("delay", true, us_text(delays[49]) + ", 99 %: " + us_text(delays[98]));
  }

  /// Reads until the port is quiet for longer than keltipc-portsim waits for the rest of a message. Returns the
  /// number of bytes.
  std::size_t read_all() {
    std::size_t total = 0;
    for (unsigned int i = 0; i < 2 * options.depth_limit && port.is_readable(milliseconds(1100)); ++i) {
      total += port.read(CheckedPort::reading, *port.reader, frame_size).size();
    }
    return total;
  }

  void try_write_of(const char* row, const std::string& bytes) {
    port.write(bytes);
    const std::string result = port.call_text;
    table.answer(row, true, result + ", " + std::to_string(read_all()) + " back");
  }

  void try_other_writes() {
    try_write_of("write of half a frame", make_frame(0).substr(frame_size / 2));
    try_write_of("write of two frames", make_frame(0) + make_frame(1));
    unsigned int held = 0;
    while (held < options.depth_limit && port.write(make_frame(held))) ++held;
    const std::size_t back = read_all() / frame_size;
    const std::string count = std::to_string(held) + (held == options.depth_limit ? " or more" : "");
    table.answer("messages that it holds", back >= held, count + ", " + std::to_string(back) + " back");
  }

  void try_removal() {
    say("now remove the port: unbind its driver, or end the program that makes it");
    const auto end = Clock::now() + seconds(options.port.wait);
    for (port.has_hung_up = false;
         !port.has_hung_up && port.link_count() != 0 && ecu::vorn::ipc::utils::is_char_dev(options.device);) {
      if (Clock::now() > end) throw CannotGoOn("the port was not removed within --wait", exit_failed);
      sleep_for(milliseconds(100));
      if (port.reader) port.is_readable(at_once);
    }
    sleep_for(seconds(1));  // The signs of it need not come at the same time.
    table.answer("removed: link count", port.link_count() == 0, std::to_string(port.link_count()));
    if (port.writer) port.write(make_frame(0));
    table.answer("removed: write", true, port.call_text);
    const bool can_read = port.reader && port.is_readable(at_once);
    table.answer("removed: poll", port.has_hung_up, port.has_hung_up ? "a hang-up" : "no hang-up");
    if (!can_read) return table.not_tried("removed: read", "poll(2) returns 0");
    port.read("removed: read", *port.reader, frame_size);
    table.answer("removed: read", true, port.call_text);
  }

  const CheckOptions& options;
  std::uint32_t identifier;
  std::size_t frame_size = options.port.frame;
  CheckTable table;
  CheckedPort port;
  std::size_t sent = 0;   ///< frames written
  std::size_t taken = 0;  ///< of these, frames that came back
};

}  // namespace

int check_port(const CheckOptions& options) {
  if ((options.receive ? 1 : 0) + (options.loop_back ? 1 : 0) + (options.send.empty() ? 0 : 1) != 1) {
    throw InputError("give one of --receive, --send ID and --loop-back");
  }
  const std::uint32_t identifier = options.send.empty() ? id_limit : parse_named(parse_frame_start_id, options.send);
  return PortCheck(options, identifier).run();
}

}  // namespace keltipc
