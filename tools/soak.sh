#!/bin/sh
# The soak: many fast games of the engine against itself under mixed clocks, thread counts,
# pondering and MultiPV, in standard chess and Chess960, and under the xboard protocol. Each
# run fails on a crash, a hang, an illegal move, a loss on time or resident memory that grows
# after the warm-up.
#
# Usage: tools/soak.sh [BUILD_DIR] [SCALE]
#   BUILD_DIR  where zelmark and match are (default build/release)
#   SCALE      games per run in tenths of the full soak: 10 (the default) plays 1,240 games in
#              about an hour and a half on two cores; 0 plays two games a run, the short
#              check of the test suite. Memory growth fails a run only at full scale: shorter
#              runs end before the hash tables have filled.
# Every run's output and games are kept in BUILD_DIR/soak/.
set -u
build=${1:-build/release}
scale=${2:-10}
root=$(cd "$(dirname "$0")/.." && pwd)
engine=$build/zelmark
out=$build/soak
mkdir -p "$out"
status=0
total=0
growth=
[ "$scale" -ge 10 ] && growth="-maxgrowth 4096"
# Inside the test suite the machine may be busy with other work: a larger overrun is forgiven
# there, so that the short check tests the engine and not the machine's load.
lag=50
[ "$scale" -eq 0 ] && lag=250

# run NAME GAMES(at scale 10) TIME_CONTROL OPENINGS [match arguments...]
run() {
    name=$1; games=$(( ($2 * scale + 9) / 10 )); tc=$3; openings=$4; shift 4
    [ $((games % 2)) -eq 1 ] && games=$((games + 1))
    [ $games -lt 2 ] && games=2
    echo "soak $name: $games games at $tc"
    if "$build/match" -engine "$first" "$@" -openings "$root/tools/match/$openings" -games "$games" \
        -tc "$tc" -lag $lag $growth -resign movecount=3 score=2000 \
        -draw movenumber=60 movecount=10 score=5 -pgnout "$out/$name.pgn" \
        > "$out/$name.log" 2>&1; then
        tail -n 6 "$out/$name.log" | grep -E "memory|crashes" | sed 's/^/  /'
    else
        status=1
        tail -n 12 "$out/$name.log"
        echo "soak $name FAILED; log and games in $out"
    fi
    total=$((total + games))
}

first=$engine
# The option words after each -engine: one engine name, then its settings. The book stays
# off, so that a book file in the working directory never changes what is tested.
run single-ponder 320 1+0.01 openings.txt name=A threads=1 ponder=true \
    -engine "$engine" name=B threads=1 ponder=true -each OwnBook=false Hash=16
run two-threads-multipv 240 0.5+0.02 openings.txt name=A threads=2 ponder=true MultiPV=3 \
    -engine "$engine" name=B threads=1 ponder=true -each OwnBook=false Hash=8
run chess960 200 1+0.02 openings960.txt name=A threads=1 ponder=true \
    -engine "$engine" name=B threads=2 ponder=false -each OwnBook=false Hash=16 -variant 960
run four-threads 160 2+0.02 openings.txt name=A threads=4 ponder=true \
    -engine "$engine" name=B threads=3 ponder=true MultiPV=2 -each OwnBook=false Hash=32
run increment-only 120 0.2+0.02 openings.txt name=A threads=1 ponder=true \
    -engine "$engine" name=B threads=2 ponder=true -each OwnBook=false Hash=4
# The engine under the xboard protocol, pondering by itself, against itself under UCI. Its
# options come from the ini file of the directory it runs in.
xdir=$out/xboard-engine
mkdir -p "$xdir"
printf 'setoption name OwnBook value false\nsetoption name Hash value 16\n' > "$xdir/Zelmark.ini"
first="sh -c 'cd $xdir && exec $(cd "$(dirname "$engine")" && pwd)/$(basename "$engine")'"
run xboard 200 1+0.02 openings.txt name=A proto=xboard ponder=true \
    -engine "$engine" name=B threads=1 ponder=true OwnBook=false Hash=16
first=$engine

echo "soak: $total games, $( [ $status -eq 0 ] && echo clean || echo FAULTS )"
exit $status
