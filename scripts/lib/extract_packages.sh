# shellcheck shell=bash
# Sourced: extract_packages FOLDER FILE extracts the armhf packages listed in FILE, one a line, and all that they
# depend on, into FOLDER, without running a line of theirs. A folder made from the same list before is left alone.
# The packages come from where this machine's own come from.

# shellcheck source=scripts/lib/debian_source.sh
source "$(dirname "${BASH_SOURCE[0]}")/debian_source.sh"

extract_packages() {
  local folder=$1 list=$2 from suite made_from
  from=$(debian_source) || return
  suite=$(cut -d ' ' -f 2 <<<"$from")
  made_from="$suite $(<"$list")"
  if [[ -f $folder.made-from && $(<"$folder.made-from") == "$made_from" && -d $folder ]]; then
    printf '%s is up to date\n' "$folder"
    return
  fi

  printf 'Extracting armhf packages into %s\n' "$folder"
  rm -rf "$folder" "$folder.new" "$folder.made-from"
  mkdir -p "$folder.new"
  # As a tar archive, so that everything belongs to whoever calls.
  if ! mmdebstrap --variant=extract --architectures=armhf --include="$(grep -v '^#' "$list" | paste -sd,)" \
    "$suite" - "deb $from" 2>"$folder.log" |
    tar -x --no-same-owner --exclude='./dev/*' -C "$folder.new"; then
    cat "$folder.log" >&2
    return 1
  fi
  make_links_relative "$folder.new"
  mv "$folder.new" "$folder"
  printf '%s\n' "$made_from" >"$folder.made-from"
}

# An absolute link would lead a linker out of the folder, to this machine's own files.
make_links_relative() {
  local link
  while read -r link; do
    ln -sfnr "$1$(readlink "$link")" "$link"
  done < <(find "$1" -type l -lname '/*')
}
