#!/usr/bin/env bash
# symbols.sh <shared library> [--update]: holds what the library shows against its list, or writes
# that list: of libzelk.so tools/symbols.txt, of libzelk_arrays.so tools/symbols_arrays.txt. And what
# the inline functions of all headers need, against the lists.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C # one order

# Functions and data of zelk among what nm prints; templates of the standard library may show, too.
names() {
  nm -C "$@" | sed -E 's/^[0-9a-f ]{16} . //' |
    grep -E '^(bool |void |vtable for |typeinfo (name )?for )?zelk::' | sort -u
}

list=$(basename "$1" .so)
list=tools/${list/#libzelk/symbols}.txt
if [[ ${2:-} == --update ]]; then
  names -D --defined-only "$1" >"$list"
fi
names -D --defined-only "$1" | diff "$list" - || {
  echo "symbols.sh: the library shows other symbols than $list lists; --update writes the list" >&2
  exit 1
}
object=$(mktemp)
trap 'rm -f "$object"' EXIT
g++ -std=c++20 -O0 -fkeep-inline-functions -I. -include zelk/zelk.h -include zelk/arrays.h -x c++ -c /dev/null -o "$object"
hidden=$(sort -u tools/symbols*.txt | comm -23 <(names --undefined-only "$object") -)
[[ -z $hidden ]] || {
  printf 'symbols.sh: inline functions need what the library hides:\n%s\n' "$hidden" >&2
  exit 1
}
