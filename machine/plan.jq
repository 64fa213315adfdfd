# What `ctest --show-only=json-v1` lists, as the lines that run-tests reads in the ARM machine:
#   entry alone|beside 'NAME' TIMEOUT SKIP_RETURN_CODE 'FOLDER' 'env' 'NAME=VALUE'... 'COMMAND'...
# Costly ones come first, so that others run beside them; those that must run alone come last.
# KELTIPC_TRAFFIC and the like are handed on: a longer run is the same tests with a larger number.

def understood: ["COST", "ENVIRONMENT", "LABELS", "PROCESSORS", "RUN_SERIAL", "SKIP_RETURN_CODE", "TIMEOUT",
                 "WORKING_DIRECTORY"];

# In the machine nothing stands before a test: no emulator, and process 1 is the manager that a private one stands in
# for elsewhere.
def native: (map(test("(^|/)qemu-arm[a-z-]*$")) | index(true)) as $emulator
  | if $emulator then .[$emulator + 3:] elif .[0] | endswith("/private-systemd") then .[2:] else . end;
def native_value: gsub("(?<before>^|[= ])[^\\s=]*qemu-arm[a-z-]* -L \\S+ "; .before);

def larger_numbers: $ENV | to_entries | map(select(.key | IN("KELTIPC_TRAFFIC", "KELTIPC_REMOVALS", "KELTIPC_SOAK_SIGNALS"))
                                            | "\(.key)=\(.value)");

def line: .name as $name
  | (.properties | map({(.name): .value}) | add) as $properties
  | (($properties | keys) - understood) as $strange
  | if $strange != [] then error("test \($name): run-tests knows nothing of \($strange | join(", "))") else . end
  | if .command then . else error("test \($name) has not been built") end
  | (($properties.ENVIRONMENT // []) + larger_numbers | map(native_value)) as $environment
  | {alone: ($properties.RUN_SERIAL // false), cost: -($properties.COST // 0),
     words: ([$name, ($properties.TIMEOUT // 120 | floor), ($properties.SKIP_RETURN_CODE // "none"),
              $properties.WORKING_DIRECTORY, "env"] + $environment + (.command | native) | @sh)};

[.tests[] | line] | sort_by(.alone, .cost) | .[] | "entry \(if .alone then "alone" else "beside" end) \(.words)"
