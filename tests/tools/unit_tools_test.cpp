#include <gmock/gmock.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

// `keltipc unit` and `keltipc target` on a real manager with the units of tests/units. KELTIPC_TOOL is the command.
namespace {

using testing::HasSubstr;

struct Ran {
  int status;
  std::string output;  ///< standard error behind standard output
};

Ran run(const std::string& arguments) {
  const std::string command = std::string("(") + std::getenv("KELTIPC_TOOL") + " " + arguments + ") </dev/null 2>&1";
  std::FILE* const pipe = ::popen(command.c_str(), "re");
  std::string output;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) output += static_cast<char>(c);
  return {WEXITSTATUS(::pclose(pipe)), output};
}

TEST(TheUnitCommands, AnswerInPlainWordsAndTellTheRestByTheirStatus) {
  const struct {
    const char* arguments;
    int status;
    const char* output;
  } steps[] = {
      {"unit state runs.service", 3, "inactive\n"},
      {"unit start --wait runs.service slow.service", 0, ""},
      {"unit state runs.service slow.service", 0, "active\nactive\n"},
      {"unit state --json runs.service nowhere.service", 4,
       "{\"unit\":\"runs.service\",\"state\":\"active\"}\n{\"unit\":\"nowhere.service\",\"state\":\"not-found\"}\n"},
      {"unit install-state runs.service slow.service", 0, "enabled\nstatic\n"},
      {"unit install-state door.socket also-runs.service", 1, "disabled\nerror\n"},
      {"unit reload runs.service", 0, ""},
      {"unit restart runs.service", 0, ""},
      {"unit start --wait runs.service", 0, ""},
      {"unit stop --wait runs.service slow.service", 0, ""},
      {"unit start slow.service", 0, ""},
      {"unit start --wait --timeout 0 slow.service", 124, "keltipc: 'slow.service' is still activating\n"},
      {"unit start --wait slow.service", 0, ""},
      {"unit stop --wait slow.service", 0, ""},
      {"target services work | sort", 0, "also-runs.service\nruns.service\n"},
      {"target start-services work", 0, ""},
      {"target stopped work", 3, "running\n"},
      {"target stop-services work", 0, ""},
      {"unit stop --wait runs.service also-runs.service", 0, ""},
      {"target stopped --json work", 0, "{\"target\":\"work\",\"services\":\"stopped\"}\n"},
      {"target active rest", 3, "inactive\n"},
      {"target isolate --yes rest.target", 0, ""},
      {"target active nowhere", 4, "keltipc: there is no target 'nowhere.target'\n"},
  };
  for (const auto& step : steps) {
    const Ran ran = run(step.arguments);
    EXPECT_EQ(ran.status, step.status) << step.arguments;
    EXPECT_EQ(ran.output, step.output) << step.arguments;
  }
}

TEST(TheUnitCommands, SayWhatWentWrong) {
  const struct {
    const char* arguments;
    int status;
    const char* sentence;
  } steps[] = {
      {"unit start masked.service", 1, "org.freedesktop.systemd1.UnitMasked"},
      {"unit start nowhere.service runs.service", 4, "org.freedesktop.systemd1.NoSuchUnit"},
      {"unit stop --wait runs.service", 0, ""},
      {"unit start --wait fails.service", 1, "'fails.service' has failed"},
      {"unit start --wait fails.service", 1, "'fails.service' has failed"},
      {"unit stop --wait fails.service", 0, ""},
      {"unit start --wait heals.service", 1, "'heals.service' has failed"},
      {"unit start --wait heals.service", 0, ""},
      {"unit stop --wait heals.service", 0, ""},
      {"unit state runs.service >/dev/full", 1, "standard output"},
      {"target isolate --yes guarded", 1, "org.freedesktop.systemd1.NoIsolation"},
      {"target isolate rest", 2, "--yes"},
      {"unit state ''", 2, "a unit's name is empty"},
      {"unit start --timeout 5 runs.service", 2, "--wait"},
      {"unit start --wait --timeout x runs.service", 2, "'x'"},
      {"unit", 2, "subcommand"},
  };
  for (const auto& step : steps) {
    const Ran ran = run(step.arguments);
    EXPECT_EQ(ran.status, step.status) << step.arguments << ": " << ran.output;
    EXPECT_THAT(ran.output, HasSubstr(step.sentence)) << step.arguments;
  }
}

}  // namespace
