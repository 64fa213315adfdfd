# shellcheck shell=bash
# Sourced: need_packages FILE... makes sure that the Debian packages listed in the files, one a line, are installed.
# As root it prints what is missing and installs it; otherwise it prints the command that does so and ends the script.

need_packages() {
  local packages missing
  packages=$(grep -hv '^#' "$@")
  missing=$(comm -23 <(sort -u <<<"$packages") \
    <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p' | sort -u) | paste -sd ' ')
  [[ -n $missing ]] || return 0

  if ((EUID != 0)); then
    printf 'These packages are missing. Install them, then run this again:\n\n  sudo apt-get install --no-install-recommends %s\n\n' \
      "$missing" >&2
    exit 1
  fi
  printf 'Installing through apt: %s\n' "$missing"
  local log
  log=$(mktemp)
  # shellcheck disable=SC2086  # one word a package
  { update_lists "$log" && DEBIAN_FRONTEND=noninteractive \
    apt-get -o DPkg::Lock::Timeout=600 install -y --no-install-recommends $missing >"$log" 2>&1 </dev/null; } ||
    { cat "$log" >&2; return 1; }
  rm "$log"
}

# Waits for another apt-get update, because apt-get itself waits only for dpkg.
update_lists() {
  until LC_ALL=C apt-get update >"$1" 2>&1 </dev/null; do
    grep -q 'Could not get lock' "$1" || return
    sleep 5
  done
}
