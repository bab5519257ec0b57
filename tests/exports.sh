#!/usr/bin/env bash
# Holds the dynamic symbol table of the shared library to a list, and its name to what hosts link;
# and all objects of the static one to control-flow protection:
#   exports.sh LIBRARY LIST [NM [READELF [ARCHIVE]]]
# LIST has one demangled name a line, in the C locale's order. Weak symbols count like any other.
set -euo pipefail
export LC_ALL=C

library=$1
list=$2
nm=${3:-nm}
readelf=${4:-readelf}
archive=${5:-}
soname=libtaskwarden.so.1
status=0

# Each line is an address, a letter and the name, which may hold blanks.
exported=$("$nm" -D --defined-only --demangle "$library" |
  sed -E 's/^[0-9a-f]* +[A-Za-z] //' | sort)

if ! difference=$(diff -U 0 "$list" - <<<"$exported"); then
  status=1
  echo "The exported names of $library are not those of $list."
  echo "'-' is missing from the library, '+' is exported without being in the list:"
  sed -n '/^[-+][^-+]/p' <<<"$difference"
fi

found=$("$readelf" -d "$library" | sed -nE 's/.*\(SONAME\).*\[(.*)\].*/\1/p')
if [[ $found != "$soname" ]]; then
  status=1
  echo "The SONAME of $library is '$found', not '$soname'."
fi

if [[ -n $archive ]]; then
  notes=$("$readelf" -n "$archive")
  objects=$(grep -c '^File: ' <<<"$notes" || true)
  protected=$(grep -cE 'feature: (IBT, SHSTK|BTI, PAC)' <<<"$notes" || true)
  if ((objects == 0 || protected != objects)); then
    status=1
    echo "Of the $objects objects of $archive, $protected have control-flow protection."
  fi
fi

exit $status
