#include "unit_name.h"

#include <algorithm>
#include <string_view>

namespace keltipc {
namespace {

constexpr std::size_t longest_name = 255;
constexpr std::string_view name_characters = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ:-_.\\@";
constexpr std::string_view suffixes[] = {".service", ".socket", ".target", ".device", ".mount", ".automount",
                                         ".swap",    ".timer",  ".path",   ".slice",  ".scope"};

bool has_suffix(std::string_view name, std::string_view suffix) {
  return name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
}

bool has_unit_suffix(std::string_view name) {
  return std::any_of(std::begin(suffixes), std::end(suffixes),
                     [name](std::string_view suffix) { return has_suffix(name, suffix); });
}

}  // namespace

bool is_service(const std::string& unit) { return has_suffix(unit, ".service"); }

std::string service_unit(const std::string& name) { return has_unit_suffix(name) ? name : name + ".service"; }

std::string target_unit(const std::string& name) { return has_suffix(name, ".target") ? name : name + ".target"; }

std::string unit_name_fault(const std::string& unit) {
  const std::string stem = unit.substr(0, unit.rfind('.'));
  if (unit.size() > longest_name) return "a unit's name has up to 255 characters";
  if (stem.empty() || stem.front() == '@' || stem.find_first_not_of(name_characters) != std::string::npos) {
    return "not a unit's name, which has letters, digits and :-_.\\@ alone (see systemd-escape(1))";
  }
  if (stem.find('@') == stem.size() - 1)
    return "a template: name an instance, such as '" + stem + "1" + unit.substr(stem.size()) + "'";
  return {};
}

}  // namespace keltipc
