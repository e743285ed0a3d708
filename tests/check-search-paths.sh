#!/usr/bin/env bash
# Checks that all libraries and programs in the folders search for libraries only relative to their own folder, never
# relative to the working directory: check-search-paths.sh FOLDER...
set -euo pipefail

export LC_ALL=C
status=0 checked=0
while IFS= read -r -d '' file; do
    headers=$(readelf -dW "$file" 2>/dev/null) || continue # neither library nor program
    checked=$((checked + 1))
    path=$(sed -nE 's/^.*\((RPATH|RUNPATH)\).*\[(.*)\]$/\2/p' <<<"$headers")
    [[ -z $path ]] && continue
    while IFS= read -r -d : part; do
        [[ $part =~ ^(\$ORIGIN|\$\{ORIGIN\})(/|$) ]] && continue
        echo "$file looks for libraries in \"$part\", of \"$path\"" >&2
        status=1
    done <<<"$path:"
done < <(find "$@" -type f \( -perm /111 -o -name '*.so*' \) -print0)
((checked > 0)) || { echo "no libraries or programs in $*" >&2; exit 1; }
((status == 0)) && echo "$checked files as they should be"
exit "$status"
