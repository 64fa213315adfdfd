#include "signal_table.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "hex.h"

namespace keltipc {
namespace {

/// More than any terminal shows in a line.
constexpr std::size_t most_bytes = 256;

constexpr const char* head = "      ID     COUNT  RATE/S      LENGTH ST     AGE";
constexpr std::size_t column_width = 49;

double seconds(SignalTable::Time time) { return std::chrono::duration<double>(time).count(); }

std::string length_range(std::size_t shortest, std::size_t longest) {
  const std::string least = std::to_string(shortest);
  return shortest == longest ? least : least + "-" + std::to_string(longest);
}

/// As wide as its column: "  9.9 s", " 9999 s", "   28 h"
std::string age_text(double age) {
  std::array<char, 32> text{};
  const int decimals = age < 999.95 ? 1 : 0;
  const bool in_hours = age >= 99999.5;
  std::snprintf(text.data(), text.size(), "%5.*f %s", decimals, in_hours ? age / 3600 : age, in_hours ? "h" : "s");
  return text.data();
}

}  // namespace

void SignalTable::add(const ecu::vorn::ipc::IpcSignal& signal, Time time) {
  Row& row = rows[signal.signal_id];
  ++row.count;
  row.shortest = std::min(row.shortest, signal.data.size());
  row.longest = std::max(row.longest, signal.data.size());
  row.status = signal.status;
  row.time = time;
  row.payload.assign(signal.data.data(), std::min(signal.data.size(), most_bytes));
}

double SignalTable::close_interval(Time now) {
  const double length = seconds(now - interval_start);
  interval_start = now;
  for (auto& [id, row] : rows) {
    row.rate = length > 0 ? static_cast<double>(row.count - row.count_before) / length : 0;
    row.changed.assign(row.payload.size(), false);
    for (std::size_t i = 0; row.count_before != 0 && i < row.payload.size(); ++i) {
      row.changed[i] = i >= row.shown.size() || row.payload[i] != row.shown[i];
    }
    row.count_before = row.count;
    row.shown = row.payload;
  }
  return length;
}

double SignalTable::rate() const {
  double sum = 0;
  for (const auto& [id, row] : rows) sum += row.rate;
  return sum;
}

std::string SignalTable::columns(std::uint32_t id, const Row& row, Time now) {
  std::array<char, 160> text{};
  std::snprintf(text.data(), text.size(), "%8s %9llu %7.1f %11s %2x %s", to_hex(id).c_str(),
                static_cast<unsigned long long>(row.count), row.rate, length_range(row.shortest, row.longest).c_str(),
                row.status, age_text(seconds(now - row.time)).c_str());
  return text.data();
}

std::string SignalTable::bytes(const Row& row, std::size_t width) {
  std::string text;
  const std::size_t shown = std::min(row.shown.size(), width / 3);
  for (std::size_t i = 0; i < shown; ++i) {
    text += row.changed[i] ? " \x1b[7m" : " ";
    append_hex_byte(text, row.shown[i]);
    if (row.changed[i]) text += "\x1b[m";
  }
  return text;
}

std::vector<std::string> SignalTable::lines(std::size_t width, Time now) const {
  const std::size_t left = width > column_width + 1 ? width - column_width - 1 : 0;
  std::vector<std::string> text{head};
  if (left >= 4) text.front() += "  DATA";
  for (const auto& [id, row] : rows) {
    text.push_back(columns(id, row, now));
    if (width != 0 && width < column_width) text.back().resize(std::min(text.back().size(), width));
    if (left != 0) text.back() += " " + bytes(row, left);
  }
  if (width != 0) text.front().resize(std::min(text.front().size(), width));
  return text;
}

std::string SignalTable::report(Time now) {
  close_interval(now);
  std::string text;
  for (const std::string& line : lines(0, now)) text += line + "\n";
  return text;
}

}  // namespace keltipc
