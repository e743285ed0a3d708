#!/usr/bin/env bash
# Checks which part of the tree includes which. The product must build on any platform that has the contract headers, so
# it may not include host headers or any third-party library except Boost. Prints each violation as "file:line: what"
# and exits 1 if there is one.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

product_own='^(tvservice-adapter|tvservice|mmservice|genrpc)/'
product_may='^(thread-safety|frame|vdl|lt|lrt|ov|appovshell|boost)/'
standard_cpp='^[a-z_]+$'
standard_c='^(assert|complex|ctype|errno|fenv|float|inttypes|iso646|limits|locale|math|setjmp|signal|stdalign|stdarg|stdatomic|stdbool|stddef|stdint|stdio|stdlib|string|tgmath|time|uchar|wchar|wctype)\.h$'
include='include[[:space:]]*(["<])([^">]+)[">]'
json_form=frame-genrpc/genrpc/include/genrpc/json.h

violations=0
checked=0
violation() { # FILE:LINE WHAT
    echo "$1: $2"
    violations=$((violations + 1))
}

# Whether a quoted name is a file beside the including file, or below the src folder that contains it.
is_local() { # FILE NAME
    [[ $2 == *..* ]] && return 1
    [[ -f ${1%/*}/$2 || ($1 == */src/* && -f ${1%%/src/*}/src/$2) ]]
}

# Whether a name is a file in a src folder of the product. Its parts form one library and may include each other.
is_product_source() { # NAME
    local folder
    [[ $1 == *..* ]] && return 1
    for folder in tvservice-adapter/src frame-genrpc/*/src; do
        [[ -f $folder/$1 ]] && return
    done
    return 1
}

# The kit for tests of applications: only they and the project's own tests use it.
kit='tvservice-adapter/testing/'

check_product() { # FILE PLACE QUOTE NAME
    [[ $4 == "$kit"* ]] && violation "$2" "the product may not include the test kit's $4"
    [[ $3 == '"' ]] && { is_local "$1" "$4" || is_product_source "$4"; } && return
    [[ $4 == tvservice-adapter/service/* ]] && violation "$2" "the product may not include the services' kit: $4"
    [[ $4 =~ $product_own || $4 =~ $product_may || $4 =~ $standard_cpp || $4 =~ $standard_c ]] && return
    [[ $1 == "$json_form" && $4 == nlohmann/* ]] && return
    violation "$2" "the product may not include $4"
}

# All parts may include the annotated mutexes, so these include nothing of the tree.
check_thread_safety() { # FILE PLACE QUOTE NAME
    [[ $4 =~ $standard_cpp ]] || violation "$2" "the annotated mutexes may not include $4"
}

# The libraries that each library of the platform uses, from its CMakeLists.txt.
declare -A uses
for list in platform/src/*/CMakeLists.txt; do
    library=${list#platform/src/} library=${library%%/*}
    text=$(tr '\n' ' ' <"$list")
    uses[$library]=" $library "
    while [[ $text =~ USES([a-z[:space:]-]*) ]]; do
        uses[$library]+="${BASH_REMATCH[1]} "
        text=${text#*"${BASH_REMATCH[0]}"}
    done
done

# Prints the platform library that has this header, or nothing.
library_of() { # NAME
    local found
    for found in platform/host/*/"$1" platform/src/*/include/"$1"; do
        [[ -f $found ]] || continue
        found=${found#platform/*/}
        echo "${found%%/*}"
        return
    done
}

check_platform() { # FILE PLACE QUOTE NAME
    local library=${1#platform/*/} other
    library=${library%%/*}
    if [[ $4 =~ $product_own || $4 == *tvservice-adapter/* || $4 == *frame-genrpc/* ]]; then
        violation "$2" "the platform may not include the product's $4"
        return
    fi
    [[ $3 == '"' && -f ${1%/*}/$4 ]] && return
    other=$(library_of "$4")
    if [[ $1 == platform/contract/* ]]; then
        [[ -z $other ]] || violation "$2" "the contract may not include $4 of the library $other"
    elif [[ -n $other ]]; then
        [[ ${uses[$library]} == *" $other "* ]] ||
            violation "$2" "the library $library may not include $4: it does not use $other"
    elif [[ $3 == '"' ]]; then
        violation "$2" "$4 is no header that the library $library can see"
    fi
}

check_user() { # FILE PLACE QUOTE NAME
    [[ $4 == *service-kit/src/* ]] && violation "$2" "only the tests may include the private $4"
    [[ $3 == '"' ]] && is_local "$1" "$4" && return
    if [[ $4 == *platform/src/* || -f platform/src/$4 || $4 != host/* && -n $(library_of "$4") ]]; then
        violation "$2" "only the platform and the tests may include the platform's own $4"
    fi
}

check_user_without_kit() { # FILE PLACE QUOTE NAME
    [[ $4 == "$kit"* ]] && violation "$2" "only tests may include the test kit's $4"
    check_user "$@"
}

check_testing() { # FILE PLACE QUOTE NAME
    [[ $4 == host/* ]] && violation "$2" "the test kit may not include the host platform's $4"
    check_user "$@"
}

# Runs check on every #include under the given folders.
scan() { # CHECK FOLDER...
    local check=$1 folder file line text
    shift
    for folder in "$@"; do
        [[ -d $folder ]] || continue
        while IFS=: read -r file line text; do
            checked=$((checked + 1))
            if [[ $text =~ $include ]]; then
                "$check" "$file" "$file:$line" "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
            else
                violation "$file:$line" "cannot parse this include: $text"
            fi
        done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include' --include='*.h' --include='*.cpp' "$folder")
    done
}

scan check_thread_safety thread-safety
scan check_product tvservice-adapter frame-genrpc
scan check_platform platform
scan check_user_without_kit receiver tools
scan check_testing testing

if ((checked == 0)); then
    echo "check-includes: found nothing to check" >&2
    exit 1
fi
((violations == 0))
