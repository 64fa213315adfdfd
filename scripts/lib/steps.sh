# shellcheck shell=bash
# Sourced: step TITLE COMMAND [ARG...]   runs a command under a heading, and prints how long it took
#          wait_for COMMAND [ARG...]     tries a command until it succeeds, for up to half a minute

step() {
  local began=$SECONDS
  printf '\n== %s\n' "$1"
  "${@:2}"
  printf -- '-- %s: %d s\n' "$1" $((SECONDS - began))
}

wait_for() {
  for _ in {1..1000}; do
    ! "$@" >/dev/null 2>&1 || return 0
    sleep 0.03
  done
  printf '%s: gave up waiting for: %s\n' "$0" "$*" >&2
  return 1
}
