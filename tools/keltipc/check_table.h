#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "escape.h"
#include "output.h"
#include "say.h"

namespace keltipc {

enum CheckMode { receiving = 1, sending = 2, loop_back = 4, reads = 5, writes = 6, any = 7, removal = 8 };

struct CheckRow {
  int modes;
  const char* property;
  const char* needs;        ///< empty if the row is for information
  const char* consequence;  ///< of a port that differs, with the page that says more
};

inline constexpr CheckRow all_rows[] = {
    {reads, "open for receiving", "O_RDONLY", "open gives up after 60 s (docs/blocking.md)"},
    {any, "character device", "yes", "open gives up after 60 s (docs/blocking.md)"},
    {any, "link count", "not 0", "the writer opens the port again before every signal (docs/blocking.md)"},
    {any, "other names", "", "the writer does not notice when one name is removed (docs/losses.md)"},
    {reads, "messages at the start", "", ""},
    {reads, "poll in silence", "0 once within 5 s", "stop never ends receive_data (docs/receiving.md)"},
    {any, "second open", "", "the application cannot poll for a hang-up or for room (docs/receiving.md)"},
    {reads, "O_NONBLOCK", "", "keltipc dump can hang (docs/new-board.md)"},
    {writes, "open for sending", "O_WRONLY, O_SYNC", "open gives up after 60 s (docs/blocking.md)"},
    {reads, "two messages wait", "one a read", ""},
    {receiving, "messages a second", "", ""},
    {loop_back, "delay", "", ""},
    {loop_back, "what comes back", "all, in order",
     "signals are lost or damaged, or others write to the port (docs/losses.md)"},
    {reads, "read after poll", "does not wait", "receive_data hangs, even after stop (docs/receiving.md)"},
    {reads, "size of a read", "one frame", "bytes of the frame before are used again (docs/losses.md)"},
    {writes, "size of a write", "one frame", "frames are lost, or transmit_data hangs (docs/losses.md)"},
    {reads, "read of twice the size", "", ""},
    {loop_back, "write of half a frame", "", ""},
    {loop_back, "write of two frames", "", ""},
    {loop_back, "messages that it holds", "", "messages are lost without notice when many wait (docs/losses.md)"},
    {any | removal, "removed: link count", "", "the writer does not notice: signals are lost (docs/losses.md)"},
    {writes | removal, "removed: write", "", "transmit_data hangs (docs/blocking.md)"},
    {reads | removal, "removed: poll", "", "the port only looks quiet (docs/receiving.md)"},
    {reads | removal, "removed: read", "", "receive_data hangs, even after stop (docs/receiving.md)"},
};

inline std::string columns(std::string verdict, std::string property, std::string needs, const std::string& last) {
  verdict.resize(11, ' ');
  property.resize(24, ' ');
  needs.resize(24, ' ');
  return verdict + property + needs + last;
}

/// Instead of whether the property holds.
constexpr std::nullopt_t not_tried = std::nullopt;

/// The answers of `keltipc check`, each printed at once.
struct CheckTable {
  explicit CheckTable(const CheckOptions& given) : options(given) {
    const int mode = options.receive ? receiving : options.loop_back ? loop_back : sending;
    for (const CheckRow& row : all_rows) {
      if ((row.modes & mode) != 0 && (options.removal || (row.modes & removal) == 0)) unanswered.push_back(row);
    }
    if (!options.json) print_line(columns("verdict", "property", "needed", "measured"));
  }

  /// Only the first answer to a row counts. A row that the mode does not have is passed over. `holds` is `not_tried`
  /// if there is a reason instead of a measurement.
  void answer(const std::string& property, std::optional<bool> holds, const std::string& measured) {
    const auto is_meant = [&](const CheckRow& row) { return row.property == property; };
    const auto found = std::find_if(unanswered.begin(), unanswered.end(), is_meant);
    if (found == unanswered.end()) return;
    const CheckRow row = *found;
    unanswered.erase(found);
    const std::string verdict = !holds ? "not tried" : *holds ? "ok" : "differs";
    const std::string consequence = verdict == "differs" ? row.consequence : "";
    const JsonFields fields = {{"device", options.device}, {"property", row.property}, {"verdict", verdict},
                               {"measured", measured},     {"needed", row.needs},      {"consequence", consequence}};
    print_line(options.json ? json_object(fields) : columns(verdict, row.property, row.needs, measured));
    if (!options.json && !consequence.empty()) print_line(std::string(11, ' ') + consequence);
    if (*row.needs == '\0' || verdict == "ok") return;
    failed += (failed.empty() ? "" : ", ") + property + " (" + verdict + ")";
  }

  /// Gives this reason for all rows without an answer. Returns whether all needed rows hold; if not, names the others
  /// on standard error.
  bool end(const std::string& reason) {
    while (!unanswered.empty()) answer(unanswered.front().property, not_tried, reason);
    if (!failed.empty()) say(quote(options.device) + " is not shown to do what the library needs: " + failed);
    return failed.empty();
  }

  const CheckOptions& options;
  std::vector<CheckRow> unanswered;
  std::string failed;
};

}  // namespace keltipc
