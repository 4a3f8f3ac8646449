#!/usr/bin/env bash
# Fails unless the program in the README is the example of the same text, which is built and run as a test.
#   readme.sh PROJECT
set -euo pipefail
cd "$1"
diff examples/first_program.cpp <(awk '/^```cpp$/ {on = 1; next} /^```$/ {on = 0} on' README.md)
