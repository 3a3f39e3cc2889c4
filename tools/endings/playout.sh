#!/bin/sh
# Plays every position of the endgame test set out from both sides, once with the engine's
# bitbases and once without, and counts the games whose result is the true one.
#
# Usage: tools/endings/playout.sh SET.epd BITBASE_DIR OUT_DIR [BUILD_DIR]
#        tools/endings/playout.sh match SET.epd BITBASE_DIR OUT_DIR [BUILD_DIR]
#        tools/endings/playout.sh count SET.epd GAMES.pgn NAME
#
# Each position is played twice by tools/match, the engine on each side once, against Debian's
# stockfish (in /usr/games), both at a fixed number of nodes a move (ZELMARK_NODES, default
# 10000; OPPONENT_NODES, default 10000). The games run to mate, repetition, the fifty-move rule or
# too little material: nothing is adjudicated. Without bitbases the engine plays as it ships;
# with them it gets BitbaseCache=16 and BitbasePath=BITBASE_DIR. The games and logs are written
# to OUT_DIR (without.pgn, with.pgn), then counted.
# match    plays the engine with bitbases against itself without them from every position of
#          the set, each twice with colours swapped, at a fast clock (MATCH_TC, default 1+0.02),
#          into OUT_DIR/match.pgn, and prints the score with its Elo margin.
# count    prints the counts for games already played: NAME is the engine's name in the PGN.
#          A game is right when its result is the set's; the counts are split by what the engine
#          had to do: win (its side wins with best play), hold (a draw) and lose.
set -eu
PATH=$PATH:/usr/games

# The usage is the comment above from "Usage:" on; on standard error when it refuses.
usage() {
    if [ "$1" -eq 0 ]; then help; else help >&2; fi
    exit "$1"
}
help() {
    awk '/^# Usage/ { on = 1 } on && !/^#/ { exit } on { sub(/^# ?/, ""); print }' "$0"
}

# The games of a PGN against the set: the FEN tag finds the true result, the White tag says
# which side the engine had.
count() {
    awk -v name="$3" '
        function score(t, task) {
            if (!(fen in truth)) { unknown++; return }
            t = truth[fen]
            if (t == "1/2-1/2") task = "hold"
            else task = ((t == "1-0") == white) ? "win" : "lose"
            games[task]++
            if (result == t) right[task]++
            else if (task == "win" && result == "1/2-1/2") drawn++
            all++
            good += (result == t)
        }
        FNR == NR {
            if ($0 ~ /^#/ || NF < 6) next
            fen = $1 " " $2 " " $3 " " $4 " " $5 " " $6
            split($0, parts, " ; result ")
            split(parts[2], r, " ")
            truth[fen] = r[1]
            next
        }
        /^\[FEN "/ { fen = $0; sub(/^\[FEN "/, "", fen); sub(/"\]$/, "", fen) }
        /^\[White "/ { white = ($0 == "[White \"" name "\"]") }
        /^\[Result "/ { result = $0; sub(/^\[Result "/, "", result); sub(/"\]$/, "", result) }
        /^\[/ { pending = 1; next }
        # The tags come in any order: a game counts where its moves begin.
        NF > 0 && pending { score(); pending = 0; fen = "" }
        END {
            if (pending) score()
            printf "%s: %d of %d games right", name, good, all
            printf " (win %d of %d, hold %d of %d, lose %d of %d)", right["win"], games["win"], \
                right["hold"], games["hold"], right["lose"], games["lose"]
            printf "; wins only drawn: %d\n", drawn
            if (unknown) printf "%d games not in the set\n", unknown
        }' "$1" "$2"
}

[ $# -ge 1 ] || usage 2
case $1 in
-h | --help | help) usage 0 ;;
count)
    [ $# -eq 4 ] || usage 2
    count "$2" "$3" "$4"
    exit 0
    ;;
esac
if [ "$1" = match ]; then
    [ $# -ge 4 ] || usage 2
    bitbases=$(cd "$3" && pwd)
    build=${5:-build/release}
    mkdir -p "$4"
    nice -n 10 "$build/match" -engine "$build/zelmark" name=Bitbases BitbaseCache=16 \
        BitbasePath="$bitbases" -engine "$build/zelmark" name=Plain -openings "$2" \
        -tc "${MATCH_TC:-1+0.02}" -pgnout "$4/match.pgn" > "$4/match.log" 2>&1 || true
    sed -n '/=== Summary/,$p' "$4/match.log"
    exit 0
fi
[ $# -ge 3 ] || usage 2
set_file=$1
bitbases=$(cd "$2" && pwd)
out=$3
build=${4:-build/release}
mkdir -p "$out"
engineNodes=${ZELMARK_NODES:-10000}
opponentNodes=${OPPONENT_NODES:-10000}
for mode in without with; do
    options=
    [ "$mode" = with ] && options="BitbaseCache=16 BitbasePath=$bitbases"
    # shellcheck disable=SC2086
    nice -n 10 "$build/match" -engine "$build/zelmark" name=Zelmark nodes="$engineNodes" $options \
        -engine stockfish nodes="$opponentNodes" -openings "$set_file" -timeout 20000 \
        -pgnout "$out/$mode.pgn" > "$out/$mode.log" 2>&1 || true
    printf '%s bitbases: ' "$mode"
    count "$set_file" "$out/$mode.pgn" Zelmark
done
