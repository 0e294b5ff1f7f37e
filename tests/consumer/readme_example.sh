#!/usr/bin/env bash
# The README's example is the compiled example.cpp, line for line: the code
# block after the line naming the file.  readme_example.sh README EXAMPLE
set -euo pipefail
readme=$1
example=$2
diff -u "$example" <(awk '/^<!-- example: tests\/consumer\/example.cpp -->$/ { found = 1; next }
  found && /^```cpp$/ { inside = 1; next }
  inside && /^```$/ { exit }
  inside { print }' "$readme")
