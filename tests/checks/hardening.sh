#!/usr/bin/env bash
# Fails unless the libraries and bundles of a build tree have the protections that Debian builds with.
#   hardening.sh BUILD_TREE
set -euo pipefail
export LC_ALL=C
failed=0
# has LIBRARY WHAT PATTERN: the text on standard input must contain the pattern.
has() {
  grep -qE "$3" <(cat) && return
  echo "$1: no $2"
  failed=1
}
fortified=
landing=
[ "$(uname -m)" = x86_64 ] && landing=-fcf-protection=full
while read -r library; do
  segments=$(readelf -lW "$library")
  symbols=$(nm -D --undefined-only "$library")
  has "$library" "read-only relocations" GNU_RELRO <<<"$segments"
  has "$library" "stack that cannot be executed" 'GNU_STACK.* RW ' <<<"$segments"
  has "$library" "binding at load time" 'FLAGS.*NOW' < <(readelf -dW "$library")
  has "$library" "stack protector" '__stack_chk_fail' <<<"$symbols"
  # How each unit was compiled, by the compiler's own record: GCC's only, and not in a stripped library.
  record=$(readelf -p .debug_str "$library" 2>/dev/null | grep 'GNU C++' || true)
  for option in -fstack-protector-strong -fstack-clash-protection $landing; do
    if grep -vq -e "$option" <<<"${record:-$option}"; then
      echo "$library: not all compiled with $option"
      failed=1
    fi
  done
  fortified+=$(grep -E '__(mem|str|sn?printf|vsn?printf|f?read|poll|recv|realpath).*_chk' <<<"$symbols" || true)
done < <(find "$1/lib" "$1/bin" -name '*.so')
has "every library" "checked functions of the C library" chk <<<"$fortified"
exit $failed
