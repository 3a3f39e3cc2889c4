#!/bin/sh
# The endgame test set: real games between engines, and from each game the first position with
# at most five men, the first with at most four and, while the four men stay, the positions 20
# and 40 plies later, each with its true result from the bitbase files. The games are played to
# the end (no adjudication), so the endings are the engines' own.
#
# Usage: tools/endings/harvest.sh games OUT_DIR [BUILD_DIR]
#        tools/endings/harvest.sh extract BITBASE_DIR PGN... > SET.epd
#
# games    plays the source games into OUT_DIR/*.pgn with tools/match at small node limits:
#          Stockfish against itself, Glaurung against Zelmark, Zelmark against itself (about 40
#          minutes on two busy cores). The engines are Debian's stockfish and glaurung in
#          /usr/games; BUILD_DIR (default build/release) holds zelmark and match.
# extract  writes one line per position that the files in BITBASE_DIR answer: the FEN, then
#          '; result R' (1-0, 0-1 or 1/2-1/2, the result under perfect play) and the men, e.g.
#          '8/8/4k3/8/2R5/8/3r4/6K1 w - - 0 1 ; result 1/2-1/2 ; KTKT'. A position seen before is
#          left out. Needs pgn-extract and BUILD_DIR/bitbasebench (BUILD_DIR from the environment,
#          default build/release).
set -eu
PATH=$PATH:/usr/games
root=$(cd "$(dirname "$0")/../.." && pwd)

# The usage is the comment above from "Usage:" on; on standard error when it refuses.
usage() {
    if [ "$1" -eq 0 ]; then help; else help >&2; fi
    exit "$1"
}
help() {
    awk '/^# Usage/ { on = 1 } on && !/^#/ { exit } on { sub(/^# ?/, ""); print }' "$0"
}

[ $# -ge 1 ] || usage 2
case $1 in
-h | --help | help) usage 0 ;;
games)
    [ $# -ge 2 ] || usage 2
    out=$2
    build=${3:-build/release}
    mkdir -p "$out"
    # play NAME GAMES SEED [match arguments...]
    play() {
        name=$1; games=$2; seed=$3; shift 3
        echo "$name: $games games"
        nice -n 10 "$build/match" "$@" -openings "$root/tools/match/openings.txt" order=random \
            -randomplies 2 -seed "$seed" -games "$games" -timeout 20000 \
            -pgnout "$out/$name.pgn" > "$out/$name.log" 2>&1 || true
        grep '^Score' "$out/$name.log" | tail -n 1
    }
    play stockfish 240 11 -engine stockfish -engine stockfish -each nodes=2000-8000
    # Glaurung loses most games to Zelmark before the ending, so few of its games count.
    play glaurung-zelmark 78 12 -engine glaurung -engine "$build/zelmark" -each nodes=3000-12000
    play zelmark 160 13 -engine "$build/zelmark" -engine "$build/zelmark" -each nodes=3000-12000
    ;;
extract)
    [ $# -ge 3 ] || usage 2
    bitbases=$2
    shift 2
    build=${BUILD_DIR:-build/release}
    candidates=$(mktemp)
    verdicts=$(mktemp)
    trap 'rm -f "$candidates" "$verdicts"' EXIT
    # pgn-extract writes each game's positions as EPD lines, a blank line between games. Men
    # are the letters of the board field; material only drops by a capture, so the position
    # right after it has a halfmove clock of 0.
    for pgn in "$@"; do
        pgn-extract -s -Wepd "$pgn"
    done | awk '
        NF == 0 { five = 0; four = 0; next }
        {
            board = $1
            men = gsub(/[a-zA-Z]/, "&", board)
            take = 0
            if (men <= 5 && !five) { five = 1; take = 1 }
            if (men <= 4 && !four) { four = 1; take = 1; since = 0 }
            # Two later looks at the same four-man ending, where the play has moved on.
            if (men == 4 && four && (since == 20 || since == 40)) take = 1
            if (four) since++
            if (take && men >= 4 && $3 == "-") print $1 " " $2 " - " $4 " 0 1"
        }' | awk '!seen[$0]++' > "$candidates"
    "$build/bitbasebench" --verdicts "$bitbases" "$candidates" > "$verdicts"
    # bitbasebench puts the result before each line: keep the answered ones, result after FEN.
    awk '$1 != "?" {
        result = $1
        fen = $2 " " $3 " " $4 " " $5 " " $6 " " $7
        white = ""; black = ""
        split("KPNBRQ", order, "")
        split("KBSLTD", german, "")
        for (k = 1; k <= 6; k++) {
            n = gsub(order[k], "&", $2); for (i = 0; i < n; i++) white = white german[k]
            l = tolower(order[k]); n = gsub(l, "&", $2); for (i = 0; i < n; i++) black = black german[k]
        }
        print fen " ; result " result " ; " white black
    }' "$verdicts"
    ;;
*) usage 2 ;;
esac
