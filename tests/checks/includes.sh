#!/usr/bin/env bash
# Fails if a folder includes what it must not know.
#   includes.sh PROJECT
set -euo pipefail
cd "$1"
failed=0

# forbid FOLDER PATTERN REASON [EXCEPT]: no include in the folder may match the extended regular expression,
# unless it names that header.
forbid() {
  local hits
  hits=$(grep -rnE "^#include [<\"]($2)" "$1" --include='*.hpp' --include='*.h' --include='*.cpp' |
    grep -vF "<${4:-none}>" || true)
  [ -z "$hits" ] && return
  printf '%s: %s\n%s\n' "$1" "$3" "$hits"
  failed=1
}

third_party='boost|openssl|google|nats|cppmicroservices'
forbid include "kestrel/|openssl|google|nats|cppmicroservices|boost/[^u]|boost/u[^u]" "public headers know arrays and UUIDs only" \
  kestrel/datastreaming/Statistics.hpp
forbid platform/datastreaming/include/kestrel/datastreaming/Statistics.hpp "kestrel|$third_party" \
  "public headers include it"
forbid src "transports|bundles|nats" "the library finds its streams at run time"
forbid platform "remote_connectivity|transports" "the platform does not know the library"
forbid bundles "remote_connectivity|kestreldata|kestrel/(framework|host|threadpool)" "bundles know platform interfaces only"
for folder in kestreldata diagnostics; do
  forbid "platform/$folder" "kestrel/(framework|host|threadpool|crypto|interrupt|datastreaming|agentdirectory)" "stands alone"
done
for folder in crypto interrupt threadpool framework datastreaming agentdirectory; do
  others=$(printf '%s|' framework host threadpool crypto interrupt datastreaming agentdirectory | sed "s/$folder|//; s/|$//")
  forbid "platform/$folder" "kestreldata|kestrel/($others)" "platform libraries do not know each other"
done
for folder in examples tools; do
  [ -d $folder ] && forbid $folder "\.\./|[A-Z][A-Za-z]*Stream\.hpp|($third_party)/.*(detail|impl)/" "uses installed headers only"
done
exit $failed
