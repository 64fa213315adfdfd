#include "commands.h"

namespace keltipc {

void add_target_command(CLI::App&, Run&) {}

}  // namespace keltipc
