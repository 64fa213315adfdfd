# shellcheck shell=bash
# Sourced: a shared library's names as abi/ records them, demangled and the same on 32 and on 64 bit, where size_t
# differs: "unsigned long" and "unsigned int" become "unsigned", "<8ul>" becomes "<8>".

# exported_names LIBRARY, imported_names LIBRARY
# The two interfaces are whole in their headers: every user has them, and whether the library keeps a copy of its own
# is the optimiser's choice.
exported_names() { names_of "$1" --defined-only | grep -vE '^(vtable|typeinfo|typeinfo name) for ecu::vorn::ipc::IData'; }
imported_names() { names_of "$1" --undefined-only; }

names_of() {
  nm -D -C "$2" --format=just-symbols "$1" |
    sed -E 's/unsigned (long long|long|int)/unsigned/g; s/([0-9])ul?\b/\1/g' | LC_ALL=C sort -u
}
