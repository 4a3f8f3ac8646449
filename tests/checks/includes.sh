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

# Rooms that must not know each other.
streams=bundles/datastreaming
forbid $streams/sequencing "(delivery|transports|src)/" "decides on stamps and pieces alone"
forbid $streams/delivery "(transports|src)/" "serves any transport"
forbid $streams/transports/memory "transports/(nats|ipc)/" "transports do not know each other"
forbid $streams/transports/ipc "transports/(memory|nats)/" "transports do not know each other"
forbid $streams/transports/nats "transports/(memory|ipc)/" "transports do not know each other"
forbid $streams/transports/outgoing "transports/(memory|ipc|nats)/" "serves any transport"
forbid $streams/transports/nats/wire "transports/nats/(connection|live|durable)/" "formats know no connection"
forbid $streams/transports/nats/connection "transports/nats/(live|durable)/" "a connection carries any stream"
forbid $streams/transports/nats/live "transports/nats/durable/" "live streams need no store"
forbid $streams/transports/nats/durable "transports/nats/live/" "durable streams stand alone"
forbid src/commands "(messenger|transfer|factories)/" "commands are stateless"
forbid src/transfer "(messenger|factories|commands)/" "knows payloads, not messages"

for folder in memory callbacks export; do
  forbid "platform/$folder" "kestreldata|kestrel/[^mce]|$third_party" "needs the standard library only"
done
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

# Every header and what it includes of ours, one pair a line: no way may lead back.
pairs() {
  local root
  for root in include src bundles/datastreaming platform/*/include; do
    find "$root" -name '*.h*' -printf '%P\n' | while read -r header; do
      sed -n 's|^#include ["<]\(.*\.h[p]*\)[">].*|\1|p' "$root/$header" | sed "s|^|$header |"
    done
  done
}
if ! loop=$(pairs | tsort 2>&1 >/dev/null); then
  printf 'headers include each other:\n%s\n' "$loop"
  failed=1
fi
exit $failed
