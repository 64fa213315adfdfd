#include "commands.h"

namespace keltipc {

void add_send_command(CLI::App&, Run&) {}

}  // namespace keltipc
