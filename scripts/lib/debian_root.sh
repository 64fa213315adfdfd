# shellcheck shell=bash
# Sourced: makes Debian systems in folders, from the mirror that this machine uses.
#
#   debian_source                     "URI SUITE main" of that mirror. The suite is this machine's release, or DEBIAN_RELEASE,
#                                     without updates, because these may lack a package for some architecture
#   make_root FOLDER PACKAGES [MMDEBSTRAP_OPTION...]
#                                     makes one from the packages (words) and their dependencies. Keeps a folder that was
#                                     made with the same arguments before.
#   fresh_root FOLDER                 makes a new one from the essential packages alone, with this project in
#                                     /srv/libkeltipc. New, because packages of an earlier run would hide one that is
#                                     missing in a list
#   in_root FOLDER COMMAND [ARG...]   runs a command there, in a process namespace of its own; needs root
#   copy_sources FOLDER               copies this project's sources: no git, nothing built

debian_source() {
  local release from
  # shellcheck source=/dev/null
  release=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
  # shellcheck disable=SC2016  # The dollar signs are apt-get's.
  if ! from=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
    grep " $release main$"); then
    printf 'apt has no source for "%s main": this needs a Debian machine, and apt-get update\n' "$release" >&2
    return 1
  fi
  printf '%s %s main\n' "${from%% *}" "${DEBIAN_RELEASE:-$release}"
}

make_root() {
  local folder=$1 packages from made_from
  packages=$(xargs <<<"$2")
  shift 2
  from=$(debian_source) || return
  made_from="$from $* $packages"
  if [[ -d $folder && $(cat "$folder.made-from" 2>&1) == "$made_from" ]]; then return; fi

  printf 'Making a Debian system in %s\n' "$folder"
  rm -rf "$folder" "$folder.made-from"
  mkdir -p "$folder"
  # Through tar, so that without root the caller owns all files.
  mmdebstrap --include="${packages// /,}" "$@" "$(cut -d ' ' -f 2 <<<"$from")" - "deb $from" \
    2>"$folder.log" | tar -x --exclude='./dev/*' -C "$folder" || { cat "$folder.log" >&2; return 1; }
  printf '%s\n' "$made_from" >"$folder.made-from"
}

fresh_root() {
  rm -f "$1.made-from"
  make_root "$1" ca-certificates --variant=minbase
  copy_sources "$1/srv/libkeltipc"
}

in_root() {
  # shellcheck disable=SC2016  # Expanded by the inner shell.
  unshare --mount --pid --fork --kill-child bash -euc '
    folder=$(realpath "$1"); shift
    mount --bind "$folder" "$folder"  # a mount of its own, so that commands there can make namespaces too
    mount -t proc proc "$folder/proc"
    mount --rbind /dev "$folder/dev"
    mount --rbind /sys "$folder/sys"
    cp /etc/resolv.conf "$folder/etc/resolv.conf"
    exec chroot "$folder" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 "$@"
  ' in_root "$@"
}

copy_sources() {
  mkdir -p "$1"
  tar -c --exclude=./.git --exclude=./build . | tar -x --no-same-owner -C "$1"
}
