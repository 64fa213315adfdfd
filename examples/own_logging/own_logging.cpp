// Everything that libkeltipc needs from a logging library, for an application that has its own. This one writes
// warnings and errors to standard error and suits one thread: with several, it would have to keep their lines apart.
#include <logging/logging.h>

#include <iostream>

namespace ecu::vorn::logging {
namespace _internal {

std::shared_ptr<LogModule> LogStreambuf::get_active_module() { return nullptr; }

LogStream::LogStream(int level_value) : std::ostream(std::cerr.rdbuf()), level(level_value) {}
LogStream::~LogStream() = default;

LogStream& operator<<(LogStream& level, const std::shared_ptr<LogModule>& module) {
  static_cast<std::ostream&>(level) << "OWN " << module->name << ": ";
  return level;
}
void LogStream::do_flush() { put('\n').flush(); }

}  // namespace _internal

std::shared_ptr<LogModule> module(const std::string& name) { return std::make_shared<LogModule>(name); }

int get_log_level() { return 4; }  // WARNING: libkeltipc does not even build the lines of the levels below.

_internal::LogStream DEBUG(7), INFO(6), NOTICE(5), WARNING(4), ERROR(3), CRITICAL(2);

}  // namespace ecu::vorn::logging
