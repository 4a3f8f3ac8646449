#!/usr/bin/env bash
# Fails unless one process of the example gets its answer from another, over a folder that is theirs alone.
#   two_processes.sh PROGRAM
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export XDG_RUNTIME_DIR=$folder
unset DS_ENDPOINT QXA_TOKEN
mkfifo "$folder/life"
"$1" serve <"$folder/life" &
exec 3>"$folder/life"  # the other process ends when this is closed
answer=$("$1" ask)
exec 3>&-
wait %1
[ "$answer" = "sum 6.5" ]
[ -z "$(ls "$folder/kestrel-streams")" ]
