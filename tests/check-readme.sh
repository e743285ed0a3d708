#!/usr/bin/env bash
# The application in the README is the one that is built.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

shown=$(sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;$d')
diff <(echo "$shown") docs/examples/minimal-application.cpp >&2 || {
    echo "README.md does not show docs/examples/minimal-application.cpp as it is" >&2
    exit 1
}
