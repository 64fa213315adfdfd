# shellcheck shell=bash
# Sourced: need_packages FILE... makes sure that the Debian packages listed in the files, one a line, are installed.
# As root it installs what is missing, saying so first; else it prints the command that does and ends the script.

need_packages() {
  local package lists missing=()
  lists=$(cat "$@") || return
  while read -r package; do
    [[ -z $package || $package == \#* ]] && continue
    [[ $(dpkg-query -W -f '${Status}' "$package" 2>/dev/null) == "install ok installed" ]] || missing+=("$package")
  done <<<"$lists"
  ((${#missing[@]} == 0)) && return

  if ((EUID != 0)); then
    printf 'These packages are missing. Install them, then run this again:\n\n  sudo apt-get install --no-install-recommends %s\n\n' \
      "${missing[*]}" >&2
    exit 1
  fi
  printf 'Installing through apt: %s\n' "${missing[*]}"
  local log status=0
  log=$(mktemp)
  { apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1 </dev/null || status=$?
  ((status == 0)) || cat "$log" >&2
  rm -f "$log"
  return "$status"
}
