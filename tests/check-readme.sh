#!/usr/bin/env bash
# The code in the README is a part of the example that is built.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# shellcheck disable=SC2016 # the backticks are Markdown
shown=$(sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;$d')
example=$(<docs/examples/minimal-application.cpp)
[[ -n $shown && $'\n'$example$'\n' == *$'\n'"$shown"$'\n'* ]] || {
    echo "README.md does not show a part of docs/examples/minimal-application.cpp as it is" >&2
    exit 1
}
