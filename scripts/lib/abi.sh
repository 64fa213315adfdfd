# shellcheck shell=bash
# Sourced: a shared library's interface as abi/ records it: sizes, members, virtual slots and enumerators of what the
# public headers declare, as XML of libabigail.

# shellcheck disable=SC2034  # Those who source it go through them.
libraries=(libkeltipc libkeltlogging)

# record_interface LIBRARY FILE
record_interface() {
  abidw --headers-dir include --drop-private-types --exported-interfaces-only --no-corpus-path --no-comp-dir-path \
    --no-show-locs --no-parameter-names --no-elf-needed --type-id-style hash "$1" --out-file "$2"
  sed -i "s|path='$PWD/|path='|" "$2"
}

# recorded_interface LIBRARY_NAME BUILD_FOLDER: the file that keeps it, which names the processor.
recorded_interface() {
  local machine
  machine=$(readelf -h "$2/$1.so" | sed -nE 's/^ *Machine: *//p')
  case $machine in
    ARM) printf 'abi/%s.armhf.abi\n' "$1" ;;
    *X86-64) printf 'abi/%s.amd64.abi\n' "$1" ;;
    *) printf 'abi/ records nothing for %s\n' "$machine" >&2 && return 1 ;;
  esac
}
