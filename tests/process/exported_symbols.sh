#!/usr/bin/env bash
# Usage: exported_symbols.sh LIBRARY LIST
# Compares what the library exports with the checked-in list: a line that begins with > is new, one with <
# is gone. A wanted change goes into the list.
set -euo pipefail
nm -D --defined-only "$1" | awk '{ print $3 }' | c++filt | LC_ALL=C sort -u | diff "$2" -
