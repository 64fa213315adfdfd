#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keltipc {

/// How often a fault happens: to every n-th message, or at random.
struct FaultRate {
  std::uint64_t every = 0;  ///< 0: not regularly
  double probability = 0;
};

/// "10" is every tenth message; "0.5%" is one of 200, at random. Nothing for any other text.
std::optional<FaultRate> parse_fault_rate(const std::string& text);

struct FaultSettings {
  FaultRate lose;
  FaultRate corrupt;
  FaultRate duplicate;
  FaultRate swap;
  std::uint32_t seed = 0;

  /// Whether the seed makes a difference.
  bool are_random() const;
};

/// Damages a stream of messages. What happens to a message depends on its number and the seed only: not on the time,
/// the kind of port or the machine, and not on which other faults are on.
class Faults {
 public:
  explicit Faults(const FaultSettings& fault_settings) : settings(fault_settings) {}

  /// What the readers get when `message` comes.
  std::vector<std::string> apply(std::string message);

  /// How many messages wait for the one that they change places with.
  std::size_t held_back() const { return held.size(); }

  std::size_t lost = 0;
  std::size_t corrupted = 0;
  std::size_t duplicated = 0;
  std::size_t swapped = 0;

 private:
  enum Draw : std::uint64_t { draw_loss, draw_damage, draw_copy, draw_swap, draw_bit };

  std::uint64_t draw(Draw what) const;
  bool happens(const FaultRate& rate, Draw what) const;
  void invert_a_bit(std::string& message);

  FaultSettings settings;
  std::uint64_t number = 0;
  std::vector<std::string> held;
};

}  // namespace keltipc
