#!/usr/bin/env bash
# Checks that the code in the README is part of the example that is built.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# shellcheck disable=SC2016 # the backticks are Markdown
shown=$(sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;$d')
example=$(<docs/examples/minimal-application.cpp)
[[ -n $shown && $'\n'$example$'\n' == *$'\n'"$shown"$'\n'* ]] || {
    echo "the code in README.md is not a verbatim part of docs/examples/minimal-application.cpp" >&2
    exit 1
}
