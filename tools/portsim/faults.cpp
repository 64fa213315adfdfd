#include "faults.h"

#include <cstdlib>
#include <iterator>
#include <utility>

namespace keltipc {
namespace {

/// SplitMix64: bits that look random, and are the same with every compiler and on every machine.
std::uint64_t mix(std::uint64_t bits) {
  bits += 0x9e3779b97f4a7c15;
  bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9;
  bits = (bits ^ (bits >> 27)) * 0x94d049bb133111eb;
  return bits ^ (bits >> 31);
}

}  // namespace

std::optional<FaultRate> parse_fault_rate(const std::string& text) {
  const bool is_percentage = !text.empty() && text.back() == '%';
  const std::string digits = is_percentage ? text.substr(0, text.size() - 1) : text;
  if (digits.empty() || digits.find_first_not_of(is_percentage ? "0123456789." : "0123456789") != std::string::npos) {
    return {};
  }
  char* end = nullptr;
  const double value = std::strtod(digits.c_str(), &end);
  const double highest = is_percentage ? 100 : 4294967295;
  if (*end != '\0' || value > highest || (!is_percentage && value < 1)) return {};
  if (is_percentage) return FaultRate{0, value / 100};
  return FaultRate{static_cast<std::uint64_t>(value), 0};
}

bool FaultSettings::are_random() const {
  const bool at_random = lose.probability > 0 || duplicate.probability > 0 || swap.probability > 0;
  return at_random || corrupt.probability > 0 || corrupt.every != 0;
}

std::vector<std::string> Faults::apply(std::string message) {
  ++number;
  if (happens(settings.lose, draw_loss)) {
    ++lost;
    return {};
  }
  if (happens(settings.corrupt, draw_damage)) invert_a_bit(message);
  const bool twice = happens(settings.duplicate, draw_copy);
  duplicated += twice ? 1 : 0;
  std::vector<std::string> made(twice ? 2 : 1, message);
  if (!held.empty()) {
    // A message that another one changes places with is not held itself: it would hold up both.
    std::move(held.begin(), held.end(), std::back_inserter(made));
    held.clear();
    ++swapped;
  } else if (happens(settings.swap, draw_swap)) {
    held.swap(made);
  }
  return made;
}

std::uint64_t Faults::draw(Draw what) const { return mix(mix(settings.seed + (what << 32)) + number); }

bool Faults::happens(const FaultRate& rate, Draw what) const {
  if (rate.every != 0) return number % rate.every == 0;
  return static_cast<double>(draw(what) >> 11) * 0x1p-53 < rate.probability;
}

void Faults::invert_a_bit(std::string& message) {
  if (message.empty()) return;
  const auto bit = static_cast<std::size_t>(draw(draw_bit) % (message.size() * 8));
  message[bit / 8] = static_cast<char>(message[bit / 8] ^ (1 << bit % 8));
  ++corrupted;
}

}  // namespace keltipc
