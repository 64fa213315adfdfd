#pragma once

#include <string>

namespace keltipc {

struct TargetOptions {
  std::string target;
  bool json = false;
  bool yes = false;
  bool all = false;
};

// Each gives the exit status.

int print_target_active(const TargetOptions& options);
int isolate_target(const TargetOptions& options);
int print_target_services(const TargetOptions& options);
int start_target_services(const TargetOptions& options);
int stop_target_services(const TargetOptions& options);
int print_target_stopped(const TargetOptions& options);

}  // namespace keltipc
