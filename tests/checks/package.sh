#!/usr/bin/env bash
# Installs the build, builds a project of a user's own against that, installs it elsewhere and runs it.
#   package.sh BUILD PROJECT [CMAKE-OPTION...]
set -euo pipefail
build=$1 project=$2
shift 2
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

cmake --install "$build" --prefix "$tree/package" >"$tree/log" || { cat "$tree/log"; exit 1; }
# Their names are those of the real framework, whose users must not find them by accident.
[ ! -e "$tree/package/include/cppmicroservices" ]
cmake -S "$project" -B "$tree/build" -DCMAKE_PREFIX_PATH="$tree/package" "$@" >"$tree/log" || { cat "$tree/log"; exit 1; }
cmake --build "$tree/build" >"$tree/log" || { cat "$tree/log"; exit 1; }
"$tree/build/package_user" "$tree/build/bin/osarch64/microservices/eps/platformservices/greeting"
cmake --install "$tree/build" --prefix "$tree/user" >"$tree/log"
mv "$tree/build/package_user" "$tree/" && rm -rf "$tree/build"
"$tree/package_user" "$tree/user/bin/osarch64/microservices/eps/platformservices/greeting"
