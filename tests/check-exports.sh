#!/usr/bin/env bash
# Compares what a library exports with a list of names, one per line: check-exports.sh LIBRARY LIST
set -euo pipefail

export LC_ALL=C
exported=$(nm -D -C --defined-only "$1" | cut -d' ' -f3- | sort)
if ! difference=$(diff <(sort "$2") <(echo "$exported")); then
    echo "$1 does not export what $2 lists (<: missing, >: not listed):" >&2
    echo "$difference" >&2
    exit 1
fi
echo "$(wc -l <"$2") exports as listed"
