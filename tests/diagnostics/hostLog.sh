#!/bin/sh
# Runs the two programs and compares what the host's own log prints, its times and thread numbers aside.
#   hostLog.sh <without the library> <with it>
set -eu
errors=$(mktemp)
trap 'rm -f "$errors"' EXIT

host_log() { "$1" 2>"$errors" | sed -E 's/\[[0-9][^]]*\]/[]/g'; }

expected=$(host_log "$1")
got=$(host_log "$2")
if [ "$(printf '%s\n' "$expected" | wc -l)" -ne 3 ] || [ "$expected" != "$got" ]; then
  printf 'Expected of the host:\n%s\ngot with the library:\n%s\n' "$expected" "$got" >&2
  exit 1
fi
if ! grep -q ' error test::ours a record of ours$' "$errors"; then
  printf 'Expected the record of the library on standard error, got:\n' >&2
  cat "$errors" >&2
  exit 1
fi
