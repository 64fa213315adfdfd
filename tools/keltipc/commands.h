#pragma once

#include <string>
#include <vector>

#include "ipc/systemd.h"

// The commands, and the options that the command line sets for them. Each command returns the exit status.
namespace keltipc {

/// What `send`, `dump` and `watch` have in common.
struct PortOptions {
  unsigned int frame = 16;
  unsigned int wait = 60;
  int log_level = 3;
};

struct SendOptions {
  PortOptions port;
  std::string device;
  std::vector<std::string> signals;
  std::string replay;
  std::string frame_start;
  bool no_timing = false;
  double speed = 1;
  double max_pause = 3.6e9;  ///< seconds; far more would overflow a clock
  unsigned int repeat = 1;
  unsigned int gap = 0;
  unsigned int interval = 0;
};

/// Checks what the command line and the files that it names ask for, then sends it; lines of standard input are sent
/// as they come. Throws InputError before the first signal is sent, std::runtime_error after.
int send_signals(const SendOptions& options);

/// What `dump` and `watch` have in common.
struct ReceiveOptions {
  PortOptions port;
  std::string source;
  std::string frame_start = "0";
  bool follow = false;
  bool strict = false;
  std::string tee;  ///< the port to which messages are passed on, if any
};

struct DumpOptions : ReceiveOptions {
  std::string time;
  unsigned int count = 0;
  unsigned int idle = 0;
  bool frames = false;
  bool json = false;
  bool log = false;
  bool stats = false;
  std::string read;  ///< the log to read instead of a port, with filters
  std::string since;
  std::string until;
};

/// Prints the lines of a log.
int dump_log(const DumpOptions& options);

/// Prints what the port receives until something ends it.
int dump_signals(const DumpOptions& options);

/// Shows a table of the signals that the port receives, until something ends it.
int watch_signals(const ReceiveOptions& options);

struct CheckOptions {
  PortOptions port;
  std::string device;
  std::string send;
  bool receive = false;
  bool loop_back = false;
  bool removal = false;
  bool json = false;
  unsigned int depth_limit = 1000;
  unsigned int idle = 10'000;
};

/// Prints whether the port does what the library relies on.
int check_port(const CheckOptions& options);

/// What all commands that queue jobs have in common.
struct JobOptions {
  bool wait = false;
  unsigned int timeout = 90;
};

struct UnitOptions : JobOptions {
  std::vector<std::string> units;
  bool json = false;
};

struct UnitAction {
  bool (ecu::vorn::ipc::Systemd::*request)(const std::string&);
  const char* participle;  ///< "started"
};

// Each returns the worst status of all units: 1, 124, 4, 3, 0.

int print_active_states(const UnitOptions& options);
int print_install_states(const UnitOptions& options);

/// Queues a job for each unit, also after one was refused; then, with `wait`, waits until all of them have ended.
int control_units(const UnitOptions& options, const UnitAction& action);

struct TargetOptions : JobOptions {
  std::string target;
  bool json = false;
  bool yes = false;
  bool all = false;
};

int print_target_active(const TargetOptions& options);
int isolate_target(const TargetOptions& options);
int print_target_services(const TargetOptions& options);
int start_target_services(const TargetOptions& options);
int stop_target_services(const TargetOptions& options);
int print_target_stopped(const TargetOptions& options);

}  // namespace keltipc
