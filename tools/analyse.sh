#!/usr/bin/env bash
# clang-tidy on one source of a build tree; silent unless it finds something.
log=$(mktemp)
# It is told what GCC was told, and need not remark on flags that only GCC knows.
clang-tidy -p "$1" --quiet --extra-arg=-Wno-unknown-warning-option --extra-arg=-Wno-ignored-optimization-argument \
    "$2" >"$log" 2>/dev/null
status=$?
if [ $status -ne 0 ]; then cat "$log"; fi
rm -f "$log"
exit $status
