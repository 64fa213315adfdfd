#include <functional>
#include <sstream>
#include <string>

#include "ipc/log_line.h"
#include "turn_about.h"

namespace {

using namespace ecu::vorn;
using ipc::Debug;
using ipc::Hex;
using ipc::log_line;

const ipc::Logger logger = logging::module("bench");
std::uint32_t id = 0x5a;

/// A line as the library writes it, at any level.
template <typename Level>
[[gnu::noinline]] void line() {
  log_line<Level>(logger, "take signal: 0x", Hex{id}, " with ", id, " bytes");
}

std::function<void(int, const std::string&, const std::string&)> sink =
    [](int, const std::string&, const std::string& text) { benchmark::DoNotOptimize(text.data()); };

/// The baseline: the same text from a std::ostringstream, to the same sink.
[[gnu::noinline]] void line_by_hand() {
  std::ostringstream os;
  os << "take signal: 0x" << std::hex << id << std::dec << " with " << id << " bytes";
  sink(6, "bench", os.str());
}

[[gnu::noinline]] void no_line() { benchmark::DoNotOptimize(id); }

}  // namespace

int main(int argc, char** argv) {
  logging::set_sink(sink);
  bench::compare({"log line skipped/call of an empty function", 0, 10000}, line<Debug>, no_line);
  bench::compare({"log line written/std::ostringstream", 0, 100}, line<ipc::Info>, line_by_hand);
  return bench::run(argc, argv);
}
