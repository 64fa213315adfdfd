# shellcheck shell=bash
# Sourced: debian_source prints "URI SUITE main", where this machine's own packages come from. The release alone, without
# its updates: these do not always have packages of one version for two architectures.

debian_source() {
  local release from
  # shellcheck source=/dev/null
  release=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
  # shellcheck disable=SC2016  # The dollar signs are apt-get's.
  from=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
    awk -v release="$release" '$2 == release && $3 == "main" && !found { print; found = 1 }')
  if [[ -z $from ]]; then
    printf 'apt knows no source of "%s main" here: this needs a Debian machine, and apt-get update\n' "$release" >&2
    return 1
  fi
  printf '%s\n' "$from"
}
