#!/usr/bin/env bash
# Checks that libraries and programs are built with hardening against exploits: check-hardened.sh FILE...
set -euo pipefail

export LC_ALL=C
status=0
expect() { # PATTERN MESSAGE: fails with MESSAGE unless the headers of $file match PATTERN
    grep -qE "$1" <<<"$headers" && return
    echo "$file $2" >&2
    status=1
}
for file in "$@"; do
    headers=$(readelf -hldW --dyn-syms "$file")
    expect '^ +Type: +DYN' "cannot be placed anywhere in memory"
    expect 'GNU_RELRO' "has jump tables that stay writable"
    expect 'BIND_NOW|Flags:.*NOW' "resolves functions when they are first called"
    expect '__stack_chk_fail' "has no canaries on its stack"
    if [[ ${file##*/} != frame-host ]]; then # its own code copies nothing
        expect ' __[a-z]+_chk@' "does not check the sizes of what it copies"
    fi
    if grep -qE 'GNU_STACK.* RWE ' <<<"$headers"; then
        echo "$file has an executable stack" >&2
        status=1
    fi
done
((status == 0)) && echo "$# files as they should be"
exit "$status"
