#!/usr/bin/env bash
# symbols.sh <shared library> [--update]: holds what the library shows against tools/symbols.txt, or
# writes that list; and what the inline functions of its headers need, against what it shows.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
export LC_ALL=C # one order

# Functions and data of zelk among what nm prints; templates of the standard library may show, too.
names() {
  nm -C "$@" | sed -E 's/^[0-9a-f ]{16} . //' |
    grep -E '^(bool |void |vtable for |typeinfo (name )?for )?zelk::' | sort -u
}

if [[ ${2:-} == --update ]]; then
  names -D --defined-only "$1" >tools/symbols.txt
fi
names -D --defined-only "$1" | diff tools/symbols.txt - || {
  echo "symbols.sh: the library shows other symbols than tools/symbols.txt lists; --update writes the list" >&2
  exit 1
}
object=$(mktemp)
trap 'rm -f "$object"' EXIT
g++ -std=c++20 -O0 -fkeep-inline-functions -I. -include zelk/zelk.h -x c++ -c /dev/null -o "$object"
hidden=$(names --undefined-only "$object" | comm -23 - tools/symbols.txt)
[[ -z $hidden ]] || {
  printf 'symbols.sh: inline functions need what the library hides:\n%s\n' "$hidden" >&2
  exit 1
}
