#!/usr/bin/env bash
# Checks the C symbols a shared library exports against the checked-in list.
#   scripts/check_c_symbols.sh LIBRARY LIST HEADER
# Fails when a listed symbol is gone (hosts built against it would break),
# when the library exports one the list lacks (add it: the list only grows),
# or when a listed symbol is not declared in the header.
set -euo pipefail
library=$1 list=$2 header=$3

# The C API's symbols are those under its versions (OSTREL_C_*); the C++ API's
# have a version of their own.
exported=$(nm -D --defined-only "$library" | awk '$2 ~ /^[TtWw]$/ && $3 ~ /@@?OSTREL_C_/ {print $3}' |
           sed 's/@.*//' | sort -u)
listed=$(grep -v '^#' "$list" | sed '/^$/d' | sort -u)

status=0
missing=$(comm -23 <(echo "$listed") <(echo "$exported"))
unlisted=$(comm -13 <(echo "$listed") <(echo "$exported"))
if [ -n "$missing" ]; then
  echo "symbols that disappeared from $library (never remove one):"; echo "$missing" | sed 's/^/  /'
  status=1
fi
if [ -n "$unlisted" ]; then
  echo "symbols exported but not in $list (append them):"; echo "$unlisted" | sed 's/^/  /'
  status=1
fi
for symbol in $listed; do
  if ! grep -Eq "\\b$symbol\\(" "$header"; then
    echo "$symbol is listed but not declared in $header"
    status=1
  fi
done
[ $status -eq 0 ] && echo "$(echo "$exported" | wc -l) C symbols exported, as listed"
exit $status
