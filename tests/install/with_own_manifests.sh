#!/usr/bin/env bash
# Runs a command that installs from a build folder. It finds no lists of installed files there, and the lists of the
# developer's own installation are back afterwards: with_own_manifests.sh BUILD_FOLDER COMMAND...
set -euo pipefail
build=$1
shift

kept=$(mktemp -d)
move() { # FROM TO
    find "$1" -maxdepth 1 -name 'install_manifest*.txt' -exec mv -t "$2" {} +
}
end() {
    local status=$?
    find "$build" -maxdepth 1 -name 'install_manifest*.txt' -delete
    move "$kept" "$build"
    rm -rf "$kept"
    exit "$status"
}
trap end EXIT
move "$build" "$kept"
"$@"
