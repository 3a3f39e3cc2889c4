#!/bin/sh
# Games of the engine in a real xboard, run headless under xvfb-run, with xboard's debug log.
# Fails on an illegal move, a loss on time, an "Error (" line from Zelmark, a game without a
# result, or fewer games than asked for.
#
# Usage: xboard_games.sh ENGINE OUTDIR GAMES [xboard options...]
#   ENGINE   the zelmark binary; it is copied into OUTDIR/engine with the repository's book and
#            a Zelmark.ini that turns the book on, and runs there as xboard's first engine
#   OUTDIR   gets games.pgn, debug.txt and xboard.txt
#   options  the opponent and the clock, for example: -scp fairymax -tc 0:10 -inc 0.1 -ponder
#            The words SELF and SELFDIR stand for the engine's copy and its directory.
set -u
engine=$1; out=$2; games=$3; shift 3
root=$(cd "$(dirname "$0")/../.." && pwd)
PATH=$PATH:/usr/games; export PATH
rm -rf "$out"; mkdir -p "$out/engine"
out=$(cd "$out" && pwd)
cp "$engine" "$out/engine/zelmark"
cp "$root/Zelmark.opn" "$out/engine/"
printf 'setoption name OwnBook value true\nsetoption name BookFile value Zelmark.opn\nsetoption name Hash value 16\n' \
    > "$out/engine/Zelmark.ini"
args=
for a in "$@"; do
    [ "$a" = SELF ] && a="$out/engine/zelmark"
    [ "$a" = SELFDIR ] && a="$out/engine"
    args="$args '$a'"
done
# xboard keeps its settings in HOME; a scratch one keeps runs apart. Adjudication is left to the
# engines' claims, which xboard verifies.
HOME=$out; export HOME
eval "xvfb-run -a xboard -fcp '$out/engine/zelmark' -fd '$out/engine' -mg $games \
    -defaultHashSize 16 -defaultCacheSizeEGTB 4 -debug -nameOfDebugFile '$out/debug.txt' \
    -sgf '$out/games.pgn' -xexit -ini '$out/xboardrc' -testClaims true -checkMates false \
    -materialDraws false -trivialDraws false -matchPause 500 $args" > "$out/xboard.txt" 2>&1
played=$(grep -c '^\[Result "' "$out/games.pgn" 2>/dev/null)
unfinished=$(grep -c '^\[Result "\*"' "$out/games.pgn" 2>/dev/null)
engineName='(first|second)'
errors=$(grep -cE "<$engineName *: Error \(" "$out/debug.txt")
# Zelmark's errors only: Fairy-Max answers unknown commands with its own "Error (" lines.
if grep -q 'scp.*fairymax\|fairymax' "$out/debug.txt" 2>/dev/null; then
    errors=$(grep -cE "<first *: Error \(" "$out/debug.txt")
fi
illegal=$(grep -ciE "illegal" "$out/debug.txt")
forfeits=$(grep -ciE "GameEnds.*(on time|time forfeit|flag)" "$out/debug.txt")
claims=$(grep -cE "<$engineName *: (1-0|0-1|1/2-1/2) \{" "$out/debug.txt")
echo "games $played of $games: $(grep -c '^\[Result "1-0"' "$out/games.pgn") 1-0," \
    "$(grep -c '^\[Result "0-1"' "$out/games.pgn") 0-1, $(grep -c '^\[Result "1/2-1/2"' "$out/games.pgn") draws," \
    "$unfinished unfinished"
echo "game ends: $(grep -oE 'GameEnds\([0-9]+, [^,]*' "$out/debug.txt" | sed 's/GameEnds([0-9]*, //' | sort | uniq -c | tr '\n' ';')"
echo "result lines from the engines: $claims; 'Error (' lines from Zelmark: $errors;" \
    "lines with 'illegal': $illegal; time forfeits: $forfeits"
tail -n 1 "$out/xboard.txt"
[ "$played" -eq "$games" ] && [ "$unfinished" -eq 0 ] && [ "$errors" -eq 0 ] && \
    [ "$illegal" -eq 0 ] && [ "$forfeits" -eq 0 ]
