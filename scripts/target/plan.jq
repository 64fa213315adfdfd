# What `ctest --show-only=json-v1` lists, as the lines that run-tests reads in the ARM machine:
#   entry 'NAME' TIMEOUT SKIP_RETURN_CODE 'FOLDER' 'env' 'NAME=VALUE'... 'COMMAND'...

def understood: ["COST", "ENVIRONMENT", "LABELS", "PROCESSORS", "RESOURCE_LOCK", "RUN_SERIAL", "SKIP_RETURN_CODE",
                 "TIMEOUT", "WORKING_DIRECTORY"];

# In the machine nothing stands before a test: no emulator, and process 1 is the manager that a private one stands in
# for elsewhere.
def native_value: gsub("(?<before>^|[= ])[^\\s=]*qemu-arm[a-z-]* -L \\S+ "; .before);
def native: (map(test("(^|/)qemu-arm[a-z-]*$")) | index(true)) as $emulator
  | if $emulator then .[$emulator + 3:] else . end;

.tests[]
| .name as $name
| (.properties | map({(.name): .value}) | add) as $properties
| (($properties | keys) - understood) as $strange
| if $strange != [] then error("test \($name): run-tests knows nothing of \($strange | join(", "))") else . end
| if .command then . else error("test \($name) has not been built") end
| "entry " + ([$name, ($properties.TIMEOUT // 120 | floor), ($properties.SKIP_RETURN_CODE // "none"),
               $properties.WORKING_DIRECTORY, "env"] + ($properties.ENVIRONMENT // [] | map(native_value)) + (.command | native) | @sh)
