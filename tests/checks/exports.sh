#!/usr/bin/env bash
# Fails unless the library shows exactly the classes and functions of the list, all of its namespace.
#   exports.sh LIBRARY LIST
set -euo pipefail
export LC_ALL=C
namespace='remote_connectivity::asyncio::util::'
symbols=$(nm -DC --defined-only "$1" | cut -d' ' -f3-)
prefix="^(typeinfo (name )?for |vtable for |guard variable for |(non-)?virtual thunk to )?$namespace"
foreign=$(grep -vE "$prefix" <<<"$symbols" || true)
if [ -n "$foreign" ]; then
  printf 'Exported, but not of the namespace:\n%s\n' "$foreign"
  exit 1
fi
shown=$(sed -E "s/$prefix//; s/^([A-Za-z_0-9]+).*/\1/" <<<"$symbols" | sort -u)
if ! diff <(sort "$2") <(echo "$shown"); then
  echo "Expected (<) and exported (>) names differ."
  exit 1
fi
