#include <logging/logging.h>

#include <iostream>

namespace ecu::vorn::logging {
namespace _internal {

std::shared_ptr<LogModule> LogStreambuf::get_active_module() { return nullptr; }
LogStream::LogStream(int value) : std::ostream(std::cerr.rdbuf()), level(value) {}
LogStream::~LogStream() = default;
void LogStream::do_flush() { put('\n').flush(); }
LogStream& operator<<(LogStream& level, const std::shared_ptr<LogModule>& module) {
  static_cast<std::ostream&>(level) << "OWN " << module->name << ": ";
  return level;
}

}  // namespace _internal

std::shared_ptr<LogModule> module(const std::string& name) { return std::make_shared<LogModule>(name); }
int get_log_level() { return 4; }
_internal::LogStream DEBUG(7), INFO(6), NOTICE(5), WARNING(4), ERROR(3), CRITICAL(2);

}  // namespace ecu::vorn::logging
