#!/usr/bin/env bash
# Fails if a document or a mutant names a test that is not there.
#   named.sh PROJECT
set -euo pipefail
cd "$1"
failed=0
tests=$(tr -d '\n' < <(cat tests/*/*.cpp tests/*/*/*.cpp) |
  grep -oE 'T(EST|EST_F|EST_P|YPED_TEST)\([A-Za-z0-9]+, *[A-Za-z0-9]+\)' | sed -E 's/.*\(([^,]*), *(.*)\)/\1.\2/')
named=$(grep -ohE '`[A-Z][A-Za-z0-9]+\.[A-Z][A-Za-z0-9]+`' README.md CONTRIBUTING.md docs/*.md docs/decisions/*.md | tr -d '`'
  sed -n 's/^Found by: [^ ]* //p' tests/mutants/*/*.patch | tr ':' '\n' | sed -E 's|^[^./]*/||; s|/.*||')
while read -r name; do
  # A mutant may name a test by its beginning, a document a file.
  [[ $name == *.hpp || $name == *.cpp ]] && continue
  grep -qE "^${name//\*/.*}$" <<<"$tests" && continue
  echo "no test $name"
  failed=1
done < <(sort -u <<<"$named")
exit $failed
