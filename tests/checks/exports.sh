#!/usr/bin/env bash
# Fails unless the libraries and bundles of a build tree export the classes and functions of a list, and besides
# them only what loads a bundle. Seen as mangled, since a demangled template may begin with our namespace too.
#   exports.sh BUILD_TREE LIST
set -euo pipefail
export LC_ALL=C
namespaces='19remote_connectivity7asyncio4util|7kestrel[0-9]+[a-z]+|11kestreldata|16cppmicroservices'
ours="^(_Z(T[ISVT]|GV|T[hv][0-9n_]+_)?NK?($namespaces)"
# How protobuf makes our message in an arena; what the framework looks up in a bundle.
ours+="|_ZN6google8protobuf5Arena18CreateMaybeMessageIN11kestreldata13KESTREL_ArrayE"
ours+="|cppmicroservices_(bundle_symbolic_name|set_bundle_context|(create|destroy)_activator)$)"

names=
while read -r library; do
  names+=$(nm -D --defined-only "$library" | awk '{ print $NF }')$'\n'
done < <(find "$1/lib" "$1/bin" -name '*.so')
foreign=$(sort -u <<<"$names" | grep -vE "$ours|^$" | c++filt || true)
if [ -n "$foreign" ]; then
  printf 'Exported, but not ours:\n%s\n' "$foreign"
  exit 1
fi

# Of each symbol the function or the class that it belongs to.
shown=$(grep -E "$namespaces" <<<"$names" | c++filt | awk '{
  isClass = sub(/^(typeinfo (name )?|vtable )for /, "")
  sub(/^(guard variable for|(non-)?virtual thunk to) /, "")
  sub(/^[^(]* google::protobuf::.*/, "google::protobuf::Arena")
  sub(/[(<\[].*/, "")
  if (!isClass && /(::.*::|^[a-z]+::)[A-Z][A-Za-z_]*::/) sub(/::[^:]*$/, "")
  print
}' | sort -u)
if ! diff <(sort "$2") <(echo "$shown"); then
  echo "Expected (<) and exported (>) names differ."
  exit 1
fi
