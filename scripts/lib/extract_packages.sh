# shellcheck shell=bash
# Sourced: extract_packages FOLDER FILE extracts the armhf packages listed in FILE, one a line, and all that they
# depend on, into FOLDER, without running a line of theirs. A folder made from the same list before is left alone.
# The packages come from where this machine's own come from.

extract_packages() {
  local folder=$1 list=$2 suite mirror made_from
  suite=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
  # shellcheck disable=SC2016  # The dollar signs are apt-get's.
  mirror=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
    awk -v suite="$suite" '$2 == suite && $3 == "main" && !found { print $1; found = 1 }')
  if [[ -z $mirror ]]; then
    printf 'apt knows no source of "%s main" here: this needs a Debian machine, and apt-get update\n' "$suite" >&2
    return 1
  fi
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
    "$suite" - "deb $mirror $suite main" 2>"$folder.log" |
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
