# shellcheck shell=bash
# Sourced: step TITLE COMMAND [ARG...]   runs a command under a heading, and prints how long it took
#          wait_for COMMAND [ARG...]     tries a command until it succeeds, for up to half a minute or KELTIPC_TEST_SECONDS
#          end_with_script               makes each background command a process group that ends with the script

step() {
  local began=$SECONDS
  printf '\n== %s\n' "$1"
  "${@:2}"
  printf -- '-- %s: %d s\n' "$1" $((SECONDS - began))
}

wait_for() {
  local last=$((SECONDS + ${KELTIPC_TEST_SECONDS:-30}))
  until "$@" >/dev/null 2>&1; do
    ((SECONDS < last)) || { printf '%s: gave up waiting for: %s\n' "$0" "$*" >&2; return 1; }
    sleep 0.03
  done
}

end_with_script() {
  set -m
  trap 'jobs -p | xargs -rI{} kill -- -{}' EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
}
