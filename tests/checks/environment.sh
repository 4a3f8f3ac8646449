#!/usr/bin/env bash
# Fails if code reads the environment in a way that a caller with fewer rights could exploit: a setuid program
# must not take paths, endpoints or tokens from whoever started it. secure_getenv() then finds nothing.
#   environment.sh PROJECT
set -euo pipefail
cd "$1"
if grep -rnE '(^|[^_[:alnum:]])getenv *\(' include src platform bundles --include='*.hpp' --include='*.h' --include='*.cpp'; then
  echo "use secure_getenv() there"
  exit 1
fi
