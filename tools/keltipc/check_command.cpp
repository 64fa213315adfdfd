#include <glob.h>

#include <fstream>
#include <set>
#include <thread>

#include "checked_port.h"
#include "ipc/signal_frame.h"
#include "signal_handler.h"

namespace keltipc {
namespace {

using std::chrono::seconds;
using std::this_thread::sleep_for;

/// Names the other processes that have the device open, simulators left out, and says if this user cannot see all.
void name_users(const std::string& device, dev_t number) {
  std::set<std::string> seen{std::to_string(::getpid())};
  glob_t files{};
  ::glob("/proc/[0-9]*/fd/*", GLOB_NOSORT, nullptr, &files);
  for (std::size_t i = 0; i < files.gl_pathc; ++i) {
    const std::string path = files.gl_pathv[i];
    const std::string user = path.substr(6, path.find("/fd/") - 6);
    struct stat used {};
    if (::stat(path.c_str(), &used) != 0 || !S_ISCHR(used.st_mode) || used.st_rdev != number) continue;
    std::string name;
    std::getline(std::ifstream("/proc/" + user + "/comm"), name);
    if (!seen.insert(user).second || name.find("portsim") != std::string::npos) continue;
    say("warning: process " + user + " (" + escape_word(name) + ") has " + quote(device) + " open too");
  }
  ::globfree(&files);
  // Who may not look at the first process sees only some.
  if (::access("/proc/1/root", F_OK) != 0) say("warning: this user cannot see who else has the port open");
}

struct PortCheck : CheckedPort {
  using CheckedPort::CheckedPort;

  void try_rows() {
    options.send.empty() ? open_to_read() : open_to_write();
    table.answer("character device", true, "yes");
    const struct stat node = status();
    table.answer("link count", node.st_nlink != 0, std::to_string(node.st_nlink));
    table.answer("other names", node.st_nlink < 2, node.st_nlink < 2 ? "none" : "yes");
    name_users(options.device, node.st_rdev);
    if (reader) say("warning: messages that are read now do not reach the application");
    if (!options.receive) say("warning: no frame is harmless: a receiver that runs takes these for signals");
    if (reader) try_silence();
    try_second_open();
    if (options.loop_back) open_to_write();
    if (reader) try_messages();
    for (int i = 0; !reader && i < 3; ++i) write_frame();
    if (options.loop_back) try_other_writes();
    if (options.removal) try_removal();
  }

  void open_to_read() { reader = open("open for receiving", O_RDONLY); }
  void open_to_write() { writer = open("open for sending", O_WRONLY | O_SYNC); }

  /// What did not differ until the end holds. Returns the exit status.
  int end(const Outcome& outcome) {
    if (received != 0) table.answer("read after poll", longest_read < patience, "longest " + us_text(longest_read));
    if (received != 0) table.answer("size of a read", true, std::to_string(options.port.frame) + " bytes");
    if (sent != 0) table.answer("size of a write", true, std::to_string(options.port.frame) + " bytes");
    return std::max<int>(outcome.status, table.end(outcome.sentence) ? exit_done : exit_failed);
  }

  void read_what_waits() {
    for (unsigned int i = 0; i < options.depth_limit && is_readable(0); ++i) read_frame();
  }

  void try_silence() {
    read_what_waits();
    table.answer("messages at the start", true, std::to_string(received) + at_most);
    for (const auto end = steady_now() + seconds(5); steady_now() < end; read_frame()) {
      if (!is_readable(300)) return table.answer("poll in silence", true, "0 after 300 ms");
    }
    table.answer("poll in silence", false, "never 0 in 5 s");
    if (options.loop_back) throw Outcome{exit_failed, "the port is never quiet"};
  }

  void try_second_open() {
    Descriptor second(-1);
    call([&] { return (second = try_to_open_device(options.device, reader ? O_RDONLY : O_WRONLY)).get(); });
    table.answer("second open", static_cast<bool>(second), second ? "allowed" : result);
    if (!second && options.loop_back) throw Outcome{exit_failed, "a second open is refused"};
    if (!second || !reader) return table.answer("O_NONBLOCK", not_tried, "a second open is refused");
    const bool came = !read(second, options.port.frame).empty();
    table.answer("O_NONBLOCK", came ? not_tried : std::optional(result == "EAGAIN"), "read: " + result);
  }

  /// A signal of one frame. The payload of the first is line ends, for which a terminal may wait.
  std::string make_frame(std::size_t number) const {
    const std::string payload(options.port.frame - header_size, static_cast<char>(number + '\n'));
    const ecu::vorn::ipc::signal_t_dyn<8> frame{identifier, 0, static_cast<std::uint16_t>(payload.size()), {}};
    return std::string(reinterpret_cast<const char*>(&frame), header_size) + payload;
  }

  /// Returns whether the port took it. If it `may_be_full`, the write may wait instead.
  bool write_frame(bool may_be_full = false) {
    const bool is_taken = write(make_frame(sent));
    if (!is_taken && (has_returned || !may_be_full)) differs("size of a write", result);
    sent += is_taken ? 1 : 0;
    return is_taken;
  }

  /// Reads the next message, which in loop-back is the first one on the way.
  void take_frame() {
    if (!is_readable(options.idle)) {
      table.answer("what comes back", false, received == 0 ? "nothing" : "a frame is missing");
      throw Outcome{received == 0 ? exit_timed_out : exit_failed, "nothing came within --idle"};
    }
    if (read_frame() != make_frame(taken++) && writer) differs("what comes back", "another frame");
  }

  void try_messages() {
    try_two();
    while (taken < sent) take_frame();
    options.receive ? try_rate() : try_delay();
    table.answer("what comes back", true, std::to_string(taken) + " frames");
    // Last, because it may cut a message.
    if (!let_two_wait()) return;
    const std::size_t got = read(reader, std::size_t{2} * options.port.frame).size();
    const std::string measured = result;
    if (got != options.port.frame || is_readable(0)) table.answer("read of twice the size", got != 0, measured);
  }

  /// In loop-back writes two, of which the port may take one only; else gives others the time to write. Returns
  /// whether a message waits.
  bool let_two_wait() {
    if (writer) write_frame();
    if (writer) write_frame(true);
    sleep_for(pause);
    return is_readable(0);
  }

  /// Pauses for longer each time, because it is up to the sender when two wait.
  void try_two() {
    for (; pause.count() <= options.idle; pause *= 2) {
      let_two_wait();
      take_frame();
      if (!is_readable(0)) continue;
      take_frame();
      return table.answer("two messages wait", true, "one a read");
    }
  }

  void try_rate() {
    read_what_waits();
    const unsigned int before = received;
    for (const auto end = steady_now() + seconds(5); steady_now() < end; is_readable(100)) read_what_waits();
    table.answer("messages a second", true, std::to_string(received - before) + " in 5 s");
  }

  void try_delay() {
    std::multiset<std::chrono::microseconds> delays;
    while (delays.size() < 100) {
      const auto begin = steady_now();
      write_frame();
      take_frame();
      delays.insert(steady_now() - begin);
    }
    table.answer("delay", true, us_text(*std::next(delays.begin(), 49)) + ", 99 %: " + us_text(*++delays.rbegin()));
  }

  /// Reads until the port is quiet for longer than keltipc-portsim waits for the rest of a message. Returns the
  /// number of bytes. More messages than that are not from here.
  std::size_t read_all(std::size_t most_messages = 8) {
    std::size_t total = 0;
    for (std::size_t i = 0; is_readable(1100); ++i) {
      if (i == most_messages) throw Outcome{exit_done, "others write to the port"};
      total += read_message().size();
    }
    return total;
  }

  void try_write_of(const char* row, const std::string& bytes) {
    write(bytes);
    const std::string written = result;
    table.answer(row, true, written + ", " + std::to_string(read_all()) + " back");
  }

  void try_other_writes() {
    read_all();
    try_write_of("write of half a frame", make_frame(0).substr(options.port.frame / 2));
    try_write_of("write of two frames", make_frame(0) + make_frame(1));
    unsigned int held = 0;
    while (held < options.depth_limit && write_frame(held > 0)) ++held;
    const std::size_t back = read_all(held + 8) / options.port.frame;
    table.answer("messages that it holds", back >= held,
                 std::to_string(held) + at_most + ", " + std::to_string(back) + " back");
  }

  void try_removal() {
    say("now remove the port: unbind its driver, or end the program that makes it");
    const auto is_removed = [&] { return (reader && is_readable(0) && has_hung_up) || status().st_nlink == 0; };
    for (const auto end = steady_now() + seconds(options.port.wait); !is_removed(); sleep_for(seconds(1))) {
      if (steady_now() > end) throw Outcome{exit_done, "the port was not removed within --wait"};
    }
    sleep_for(seconds(1));  // The signs of it need not come at the same time.
    table.answer("removed: link count", status().st_nlink == 0, std::to_string(status().st_nlink));
    if (writer) write(make_frame(0));
    table.answer("removed: write", has_returned, result);
    const bool can_read = reader && is_readable(0);
    table.answer("removed: poll", has_hung_up, has_hung_up ? "a hang-up" : "no hang-up");
    if (!can_read) return table.answer("removed: read", not_tried, "poll(2) returns 0");
    read(reader, options.port.frame);
    table.answer("removed: read", has_returned, result);
  }

  std::string at_most = " of at most " + std::to_string(options.depth_limit);
  std::chrono::milliseconds pause{100};
  std::size_t sent = 0;   ///< frames written
  std::size_t taken = 0;  ///< of these, frames that came back
};

}  // namespace

int check_port(const CheckOptions& options) {
  const int modes = options.receive + options.loop_back + !options.send.empty();
  if (modes != 1) throw InputError("give one of --receive, --send ID and --loop-back");
  handle_signal(SIGALRM, [](int) {});
  PortCheck check(options);
  try {
    check.try_rows();
    return check.end({exit_done, "two messages did not wait at once"});
  } catch (const InputError&) {
    check.table.answer("character device", false, "no");
    return check.end({exit_failed, "not a character device"});
  } catch (const Outcome& outcome) {
    if (check.table.failed.empty()) say(quote(options.device) + ": " + outcome.sentence);
    return check.end(outcome);
  }
}

}  // namespace keltipc
