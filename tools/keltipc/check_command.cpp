#include <glob.h>

#include <fstream>
#include <set>
#include <thread>

#include "check_port.h"
#include "input_error.h"
#include "ipc/signal_frame.h"
#include "signal_text.h"

namespace keltipc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::this_thread::sleep_for;

/// Says which other processes have the device open, simulators left out, and whether this user can see all processes.
void name_users(const std::string& device, dev_t number) {
  glob_t files{};
  ::glob("/proc/[0-9]*/fd/*", GLOB_NOSORT, nullptr, &files);
  std::set<std::string> users;
  for (std::size_t i = 0; i < files.gl_pathc; ++i) {
    struct stat used {};
    const std::string path = files.gl_pathv[i];
    if (::stat(path.c_str(), &used) != 0 || !S_ISCHR(used.st_mode) || used.st_rdev != number) continue;
    users.insert(path.substr(6, path.find("/fd/") - 6));
  }
  ::globfree(&files);
  users.erase(std::to_string(::getpid()));
  for (const std::string& user : users) {
    std::string name;
    std::getline(std::ifstream("/proc/" + user + "/comm"), name);
    if (name.find("portsim") != std::string::npos) continue;
    say("warning: process " + user + " (" + escape_word(name) + ") has " + quote(device) + " open too");
  }
  // Who may not look at the first process sees only some.
  if (::access("/proc/1/root", F_OK) == 0) return;
  say("warning: only root can see which processes of other users have " + quote(device) + " open");
}

struct PortCheck : CheckedPort {
  using CheckedPort::CheckedPort;

  int run() {
    CannotGoOn end{"two messages did not wait at once"};
    try {
      try_rows();
    } catch (const InputError&) {
      table.answer("character device", false, "no");
      end.reason = "not a character device";
    } catch (const CannotGoOn& reason) {
      end = reason;
    }
    answer_sizes();
    return !table.end(end.reason) && end.status == exit_done ? exit_failed : end.status;
  }

  void try_rows() {
    const bool only_sends = !options.send.empty();
    only_sends ? open_to_write() : open_to_read();
    table.answer("character device", true, "yes");
    table.answer("link count", status().st_nlink != 0, std::to_string(status().st_nlink));
    table.answer("other names", status().st_nlink < 2, status().st_nlink < 2 ? "none" : "yes");
    name_users(options.device, status().st_rdev);
    if (!only_sends) say("warning: messages that are read now do not reach the application");
    if (!options.receive) say("warning: no frame is harmless: a receiver that runs takes these for signals");
    if (reader) try_silence();
    try_second_open();
    if (options.loop_back) open_to_write();
    if (reader) try_messages();
    for (int i = 0; only_sends && i < 3; ++i) write_frame();
    if (reader) try_other_reads();
    if (options.loop_back) try_other_writes();
    if (options.removal) try_removal();
  }

  void answer_sizes() {
    const std::string size = std::to_string(frame_size) + " bytes";
    if (received != 0) table.answer(reading, true, "longest " + us_text(longest_read));
    if (received != 0) table.answer("size of a read", true, size);
    if (sent != 0) table.answer("size of a write", true, size);
  }

  void try_silence() {
    while (received < options.depth_limit && is_readable(0)) read_frame();
    table.answer("messages at the start", true, std::to_string(received) + at_most);
    for (const auto end = Clock::now() + seconds(5); Clock::now() < end; read_frame()) {
      if (!is_readable(300)) return table.answer("poll in silence", true, "0 after 300 ms");
    }
    table.answer("poll in silence", false, "never 0 in 5 s");
    if (options.loop_back) throw CannotGoOn{"the port is never quiet"};
  }

  void try_second_open() {
    const bool is_allowed = static_cast<bool>(open_again());
    table.answer("second open", is_allowed, is_allowed ? "allowed" : call_text);
    if (!is_allowed && options.loop_back) throw CannotGoOn{"a second open is refused"};
  }

  /// A signal of one frame. The payload of the first is line ends, for which a terminal may wait.
  std::string make_frame(std::size_t number) const {
    std::string bytes(frame_size, static_cast<char>(number + '\n'));
    const ecu::vorn::ipc::signal_t_dyn<8> header{identifier, 0, static_cast<std::uint16_t>(frame_size - 8), {}};
    std::memcpy(bytes.data(), &header, 8);
    return bytes;
  }

  void write_frame() {
    if (!write(make_frame(sent++))) differs("size of a write", call_text);
  }

  /// In loop-back, where the port may hold one message only.
  void write_two() {
    write_frame();
    if (write(make_frame(sent))) ++sent;
  }

  /// Reads the next message, which in loop-back is the first one on the way.
  void take_frame() {
    if (!is_readable(options.idle)) {
      table.answer("what comes back", false, received == 0 ? "nothing" : "a frame is missing");
      throw CannotGoOn{"nothing came within --idle", received == 0 ? exit_timed_out : exit_done};
    }
    const bool is_same = read_frame() == make_frame(taken++);
    if (writer && !is_same) differs("what comes back", "another frame");
  }

  void try_messages() {
    if (writer) write_frame();
    take_frame();
    if (writer) ::fcntl(writer.get(), F_SETFL, O_NONBLOCK);  // From here on, a write fails if it would wait.
    try_two();
    while (taken < sent) take_frame();
    options.receive ? try_rate() : try_delay();
    table.answer("what comes back", true, std::to_string(taken) + " frames");
  }

  /// Messages wait while nobody reads: for longer each time, because it is up to the sender when two do.
  void try_two() {
    for (; pause.count() <= options.idle; pause *= 2) {
      if (writer) write_two();
      sleep_for(pause);
      take_frame();
      if (!is_readable(0)) continue;
      take_frame();
      return table.answer("two messages wait", true, "one a read");
    }
  }

  void try_rate() {
    const unsigned int before = received;
    for (const auto end = Clock::now() + seconds(1); Clock::now() < end;) {
      if (is_readable(100)) read_frame();
    }
    table.answer("messages a second", true, std::to_string(received - before));
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

  /// What may cut a message comes last.
  void try_other_reads() {
    const Descriptor second = open_again();
    if (second && !is_readable(0)) {
      read("O_NONBLOCK", second, frame_size);
      table.answer("O_NONBLOCK", true, "read: " + call_text);
    }
    table.answer("O_NONBLOCK", not_tried, second ? "messages wait" : "a second open is refused");
    if (writer) write_two();
    sleep_for(pause);
    if (!is_readable(0)) return;
    const std::size_t got = read("read of twice the size", reader, 2 * frame_size).size();
    if (got > frame_size || is_readable(0))
      table.answer("read of twice the size", true, std::to_string(got) + " bytes");
  }

  /// Reads until the port is quiet for longer than keltipc-portsim waits for the rest of a message. Returns the
  /// number of bytes.
  std::size_t read_all() {
    std::size_t total = 0;
    for (unsigned int i = 0; i < 2 * options.depth_limit && is_readable(1100); ++i) {
      total += read(reading, reader, frame_size).size();
    }
    return total;
  }

  void try_write_of(const char* row, const std::string& bytes) {
    write(bytes);
    const std::string result = call_text;
    table.answer(row, true, result + ", " + std::to_string(read_all()) + " back");
  }

  void try_other_writes() {
    read_all();
    try_write_of("write of half a frame", make_frame(0).substr(frame_size / 2));
    try_write_of("write of two frames", make_frame(0) + make_frame(1));
    unsigned int held = 0;
    while (held < options.depth_limit && write(make_frame(held))) ++held;
    const std::size_t back = read_all() / frame_size;
    table.answer("messages that it holds", back >= held,
                 std::to_string(held) + at_most + ", " + std::to_string(back) + " back");
  }

  void try_removal() {
    say("now remove the port: unbind its driver, or end the program that makes it");
    const auto is_removed = [this] { return (reader && is_readable(0) && has_hung_up) || status().st_nlink == 0; };
    for (const auto end = Clock::now() + seconds(options.port.wait); !is_removed(); sleep_for(milliseconds(100))) {
      if (Clock::now() > end) throw CannotGoOn{"the port was not removed within --wait"};
    }
    sleep_for(seconds(1));  // The signs of it need not come at the same time.
    table.answer("removed: link count", status().st_nlink == 0, std::to_string(status().st_nlink));
    if (writer) write(make_frame(0));
    table.answer("removed: write", true, call_text);
    const bool can_read = reader && is_readable(0);
    table.answer("removed: poll", has_hung_up, has_hung_up ? "a hang-up" : "no hang-up");
    if (!can_read) return table.answer("removed: read", not_tried, "poll(2) returns 0");
    read("removed: read", reader, frame_size);
    table.answer("removed: read", true, call_text);
  }

  std::uint32_t identifier = options.send.empty() ? id_limit : parse_named(parse_frame_start_id, options.send);
  std::size_t frame_size = options.port.frame;
  std::string at_most = " of at most " + std::to_string(options.depth_limit);
  milliseconds pause{100};
  std::size_t sent = 0;   ///< frames written
  std::size_t taken = 0;  ///< of these, frames that came back
};

}  // namespace

int check_port(const CheckOptions& options) {
  if ((options.receive ? 1 : 0) + (options.loop_back ? 1 : 0) + (options.send.empty() ? 0 : 1) != 1) {
    throw InputError("give one of --receive, --send ID and --loop-back");
  }
  return PortCheck(options).run();
}

}  // namespace keltipc
