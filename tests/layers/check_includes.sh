#!/bin/sh
# Fails when a file under src/ includes a header from a higher layer. The layers, lowest first:
# board, learn, eval and book (side by side), search, frontend, main. Two includes point up by
# design: the search reports through the front end's Reporter interface, and the material
# learner of learn/ drives searches of its own.
# Usage: check_includes.sh REPOSITORY_ROOT
src=${1:-.}/src
status=0

rank() {
    case $1 in
    board) echo 0 ;;
    learn) echo 1 ;;
    eval | book) echo 2 ;;
    search) echo 3 ;;
    frontend) echo 4 ;;
    main) echo 5 ;;
    *) echo 99 ;;
    esac
}

allowed() {
    # $1: including file relative to src, $2: included header
    case "$1:$2" in
    search/*:frontend/reporter.h) return 0 ;;
    learn/material_learner*:search/*) return 0 ;;
    esac
    return 1
}

for file in $(cd "$src" && find . -name '*.h' -o -name '*.cpp' | sed 's|^\./||' | sort); do
    from=${file%%/*}
    from_rank=$(rank "$from")
    for header in $(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$src/$file"); do
        to=${header%%/*}
        [ "$to" = "$header" ] && continue
        to_rank=$(rank "$to")
        if [ "$to_rank" -gt "$from_rank" ] && ! allowed "$file" "$header"; then
            echo "src/$file includes $header from a higher layer"
            status=1
        fi
    done
done
[ $status -eq 0 ] && echo "includes point down the layers"
exit $status
