# shellcheck shell=bash
# Sourced: Debian systems in folders, of the release and from the package sources of this machine. Needs root.
#
#   make_root FOLDER LIST [MMDEBSTRAP_OPTION...]   the packages in the file LIST, one a line, and the essential ones.
#                                                  A folder made the same way before is left alone.
#   copy_sources FOLDER                            this project, as a source archive has it: no git, nothing built
#   in_root FOLDER COMMAND [ARG...]                runs a command as root there, with processes of its own

# shellcheck source=scripts/lib/debian_source.sh
source "$(dirname "${BASH_SOURCE[0]}")/debian_source.sh"

make_root() {
  local folder=$1 list=$2 made_from from suite
  shift 2
  ((EUID == 0)) || { printf 'A Debian system in a folder needs root\n' >&2; return 1; }
  from=$(debian_source)
  suite=$(cut -d ' ' -f 2 <<<"$from")
  made_from="$suite $* $(<"$list")"
  if [[ -f $folder.made-from && -d $folder && $(<"$folder.made-from") == "$made_from" ]]; then return; fi

  printf 'Making a Debian system in %s\n' "$folder"
  rm -rf "$folder" "$folder.made-from"
  mkdir -p "$(dirname "$folder")"
  if ! mmdebstrap --variant=minbase --include="$(grep -v '^#' "$list" | paste -sd,)" "$@" "$suite" "$folder" \
    "deb $from" 2>"$folder.log"; then
    cat "$folder.log" >&2
    return 1
  fi
  printf '%s\n' "$made_from" >"$folder.made-from"
}

copy_sources() {
  mkdir -p "$1"
  tar -c --exclude=./.git --exclude=./build . | tar -x --no-same-owner -C "$1"
}

in_root() {
  local folder=$1
  shift
  # shellcheck disable=SC2016  # Expanded by the inner shell.
  unshare --mount --pid --fork --kill-child bash -euc '
    folder=$(realpath "$1"); shift
    mount --bind "$folder" "$folder"  # a mount of its own, so that commands there can make namespaces too
    mount -t proc proc "$folder/proc"
    mount --rbind /dev "$folder/dev"
    mount --rbind /sys "$folder/sys"
    cp /etc/resolv.conf "$folder/etc/resolv.conf"
    exec chroot "$folder" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 "$@"
  ' in_root "$folder" "$@"
}
