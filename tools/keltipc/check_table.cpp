#include "check_table.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "escape.h"
#include "say.h"

namespace keltipc {

enum CheckMode : unsigned int {
  receiving = 1,
  sending = 2,
  loop_back = 4,
  reads = 5,
  writes = 6,
  any = 7,
  removal = 8
};

struct CheckRow {
  unsigned int modes;
  const char* property;
  const char* needs;        ///< empty if the row is for information
  const char* consequence;  ///< of a port that differs, with the page that says more
};

namespace {

constexpr CheckRow all_rows[] = {
    {reads, "open for receiving", "O_RDONLY", "open gives up after 60 s (docs/blocking.md)"},
    {any, "character device", "yes", "open gives up after 60 s (docs/blocking.md)"},
    {any, "link count", "not 0", "the writer opens the port again before every signal (docs/blocking.md)"},
    {any, "other names", "", "the writer does not notice when one name is removed (docs/losses.md)"},
    {reads, "messages at the start", "", ""},
    {reads, "poll in silence", "0 once within 5 s", "stop never ends receive_data (docs/receiving.md)"},
    {any, "second open", "", "the application cannot poll for a hang-up (docs/receiving.md)"},
    {writes, "open for sending", "O_WRONLY, O_SYNC", "open gives up after 60 s (docs/blocking.md)"},
    {reads, "two messages wait", "one a read", ""},
    {reads, "read of twice the size", "", ""},
    {receiving, "messages a second", "", ""},
    {loop_back, "delay", "", ""},
    {loop_back, "what comes back", "all, in order", "signals are lost or damaged, without notice (docs/losses.md)"},
    {reads, "read after poll", "does not wait", "receive_data hangs, even after stop (docs/receiving.md)"},
    {reads, "size of a read", "one frame", "bytes of the frame before are used again (docs/losses.md)"},
    {writes, "size of a write", "one frame", "frames are lost, or transmit_data hangs (docs/losses.md)"},
    {reads, "O_NONBLOCK", "", "keltipc dump can hang (docs/new-board.md)"},
    {loop_back, "write of half a frame", "", ""},
    {loop_back, "write of two frames", "", ""},
    {loop_back, "messages that it holds", "", "a full port drops messages without notice (docs/losses.md)"},
    {any | removal, "removed: link count", "", "the writer does not notice: signals are lost (docs/losses.md)"},
    {writes | removal, "removed: write", "", "transmit_data hangs (docs/blocking.md)"},
    {reads | removal, "removed: poll", "", "the port only looks quiet (docs/receiving.md)"},
    {reads | removal, "removed: read", "", "receive_data hangs, even after stop (docs/receiving.md)"},
};

void print_columns(const std::string& verdict, const std::string& property, const std::string& needs,
                   const std::string& measured) {
  std::cout << std::left << std::setw(11) << verdict << std::setw(24) << property << std::setw(24) << needs
            << measured << '\n';
}

}  // namespace

CheckTable::CheckTable(const CheckOptions& given) : options(given) {
  const unsigned int mode = options.receive ? receiving : options.loop_back ? loop_back : sending;
  for (const CheckRow& row : all_rows) {
    if ((row.modes & mode) != 0 && ((row.modes & removal) == 0 || options.removal)) unanswered.push_back(&row);
  }
}

void CheckTable::answer(const std::string& property, bool holds, const std::string& measured) {
  print(property, holds ? "ok" : "differs", measured);
}

void CheckTable::not_tried(const std::string& property, const std::string& reason) {
  print(property, "not tried", reason);
}

bool CheckTable::end(const std::string& reason) {
  while (!unanswered.empty()) not_tried(unanswered.front()->property, reason);
  if (!failed.empty()) say(quote(options.device) + " is not shown to do what the library needs: " + failed);
  return failed.empty();
}

void CheckTable::print(const std::string& property, const std::string& verdict, const std::string& measured) {
  const auto found = std::find_if(unanswered.begin(), unanswered.end(),
                                  [&](const CheckRow* row) { return row->property == property; });
  if (found == unanswered.end()) return;
  const CheckRow& row = **found;
  unanswered.erase(found);
  const std::string consequence = verdict == "differs" ? row.consequence : "";
  if (options.json) {
    const nlohmann::ordered_json object = {{"device", options.device}, {"property", property},
                                           {"verdict", verdict},       {"measured", measured},
                                           {"needed", row.needs},      {"consequence", consequence}};
    std::cout << object.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace) << '\n';
  } else {
    if (std::exchange(is_first, false)) print_columns("verdict", "property", "needed", "measured");
    print_columns(verdict, property, row.needs, measured);
    if (!consequence.empty()) std::cout << std::string(11, ' ') << consequence << '\n';
  }
  if (!std::cout.flush()) throw std::runtime_error("cannot write to standard output");
  if (*row.needs != '\0' && verdict != "ok") failed += (failed.empty() ? "" : ", ") + property + " (" + verdict + ")";
}

}  // namespace keltipc
