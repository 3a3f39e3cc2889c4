#!/bin/bash
# Speed ratios in one run: this build's bench and perftbench against an older build's, taken
# in turns so that both see the same load, and against the peer engines found on the machine.
set -u

usage() {
    cat <<'EOF'
Usage: tools/speed/ratios.sh [OPTIONS] OLD_DIR [NEW_DIR]

Prints nodes per second of the search (bench) and of perft (perftbench) for the programs in
NEW_DIR (default build/release beside this script's repository) and in OLD_DIR (an older build
holding the same programs), run in turns, and the ratio new/old of the best round of each. The
rates are by CPU time, so that other work on the machine counts less. Node counts must agree:
a difference is reported, since a speed change may not change a node.

Then, for each peer engine found (stockfish, toga2, glaurung in PATH or /usr/games), its nodes
per second searching bench's positions for a fixed time each with one thread and a 16 MiB
table, and for stockfish its "go perft" rate on perftbench's positions and depths; each is
printed beside ours with the ratio ours/peer.

Options:
  --rounds N        turns of each program (default 3)
  --depth D         bench depth (default bench's own, 9)
  --perft-offset K  perftbench offset (default 0)
  --movetime MS     peers' time per position in ms (default 1000)
  --no-peers        skip the peer engines
  --threads D       instead of all the above: NEW_DIR's engine searching bench's positions to
                    depth D with NumberOfProcessors 1 and 2 in turns, the wall time of each
                    and the ratio (time to depth)
  --help            this text
EOF
}

rounds=3
depth=""
offset=0
movetime=1000
peers=1
threadsDepth=""
positional=()
while [ $# -gt 0 ]; do
    case "$1" in
        --help | -h) usage; exit 0 ;;
        --rounds) rounds=${2:?}; shift ;;
        --depth) depth=${2:?}; shift ;;
        --perft-offset) offset=${2:?}; shift ;;
        --movetime) movetime=${2:?}; shift ;;
        --no-peers) peers=0 ;;
        --threads) threadsDepth=${2:?}; shift ;;
        -*) echo "ratios.sh: unknown option $1 (try --help)" >&2; exit 2 ;;
        *) positional+=("$1") ;;
    esac
    shift
done
if [ ${#positional[@]} -lt 1 ] || [ ${#positional[@]} -gt 2 ]; then
    usage >&2
    exit 2
fi
repo=$(cd "$(dirname "$0")/../.." && pwd)
old=${positional[0]}
new=${positional[1]:-$repo/build/release}
for dir in "$old" "$new"; do
    for program in bench perftbench; do
        if [ ! -x "$dir/$program" ]; then
            echo "ratios.sh: no $program in $dir" >&2
            exit 2
        fi
    done
done
export PATH="$PATH:/usr/games"

# "nodes nps wall-nps" of one bench or perftbench run. On a loaded machine the wall clock the
# programs print counts time spent waiting for a core, so the ratio of builds is by the CPU time
# used; peers report by the wall clock, so they are held against our wall clock rate.
cpuRate() {
    local out seconds TIMEFORMAT='%U %S'
    out=$({ time "$@" >"$scratch"; } 2>&1)
    seconds=$(awk -v u="${out% *}" -v s="${out#* }" 'BEGIN { print u + s }')
    awk -v t="$seconds" '/^Total:/ { print $2, $2 / t, $6 }
        $1 == "total" { print $3, $3 / t, $7 * 1e6 }' "$scratch"
}
benchRun() { cpuRate "$1/bench" $depth; }
perftRun() { cpuRate "$1/perftbench" "$offset"; }
scratch=$(mktemp)
trap 'rm -f "$scratch"' EXIT

# Keeps the best rate of each side over the rounds, alternating which goes first.
compare() {
    local what=$1 runner=$2 bestNew=0 bestOld=0 wallNew=0 nodesNew="" nodesOld="" i line
    for ((i = 0; i < rounds; ++i)); do
        local order=("$new" "$old")
        if ((i % 2)); then order=("$old" "$new"); fi
        for dir in "${order[@]}"; do
            line=$($runner "$dir")
            set -- $line
            if [ "$dir" = "$new" ]; then
                nodesNew=$1
                bestNew=$(awk -v a="$bestNew" -v b="$2" 'BEGIN { print (b > a ? b : a) }')
                wallNew=$(awk -v a="$wallNew" -v b="$3" 'BEGIN { print (b > a ? b : a) }')
            else
                nodesOld=$1
                bestOld=$(awk -v a="$bestOld" -v b="$2" 'BEGIN { print (b > a ? b : a) }')
            fi
        done
    done
    printf '%-10s new %12.0f nps  old %12.0f nps (CPU time)  ratio %.3f' "$what" "$bestNew" "$bestOld" \
        "$(awk -v a="$bestNew" -v b="$bestOld" 'BEGIN { print a / b }')"
    if [ "$nodesNew" = "$nodesOld" ]; then
        printf '  (%s nodes each)\n' "$nodesNew"
    else
        printf '  NODE COUNTS DIFFER: new %s, old %s\n' "$nodesNew" "$nodesOld"
    fi
    eval "${what}Ours=$wallNew"
}

# The positions and depths of bench and perftbench, read from their sources.
mapfile -t benchFens < <(sed -n '/BenchPositions\[\] = {/,/^};/p' "$repo/tools/bench/bench.cpp" |
    sed -n 's/^ *"\(.*\)",$/\1/p')
mapfile -t perftCases < <(sed -n 's/^ *{"[a-z]*", "\(.*\)", \([0-9]*\)},$/\2 \1/p' \
    "$repo/tools/perftbench/perftbench.cpp")

# Sends the lines on stdin to an engine one at a time, waiting after each "go" for its
# "bestmove" (or perft's "Nodes searched"), and prints everything the engine said.
drive() {
    local engine=$1 command reply
    coproc ENGINE { "$engine" 2>/dev/null; }
    while IFS= read -r command; do
        echo "$command" >&"${ENGINE[1]}"
        case "$command" in
            go\ perft*) until [[ "${reply:-}" == Nodes\ searched* ]]; do
                            IFS= read -r reply <&"${ENGINE[0]}" || break; echo "$reply"; done
                        reply="" ;;
            go*) until [[ "${reply:-}" == bestmove* ]]; do
                     IFS= read -r reply <&"${ENGINE[0]}" || break; echo "$reply"; done
                 reply="" ;;
            isready) until [[ "${reply:-}" == readyok* ]]; do
                         IFS= read -r reply <&"${ENGINE[0]}" || break; echo "$reply"; done
                     reply="" ;;
        esac
    done
    echo quit >&"${ENGINE[1]}"
    wait "$ENGINE_PID" 2>/dev/null
}

# Nodes per second of an engine over bench's positions: the nodes and time of the last
# report before each bestmove, summed.
peerSearchRate() {
    {
        echo uci
        echo "setoption name Threads value 1"
        echo "setoption name Hash value 16"
        echo "setoption name OwnBook value false"
        echo isready
        for fen in "${benchFens[@]}"; do
            echo ucinewgame
            echo "position fen $fen"
            echo isready
            echo "go movetime $movetime"
        done
    } | drive "$1" | awk '
        /^info/ { n = t = ""
                  for (i = 1; i < NF; ++i) { if ($i == "nodes") n = $(i + 1); if ($i == "time") t = $(i + 1) }
                  if (n != "" && t != "") { lastN = n; lastT = t } }
        /^bestmove/ { nodes += lastN; ms += lastT; lastN = lastT = 0 }
        END { if (ms > 0) printf "%.0f\n", nodes * 1000 / ms; else print 0 }'
}

# Stockfish's perft rate on perftbench's cases: wall time of the whole session less that of
# an empty one, so that its start-up is not counted.
now() { date +%s%N; }
stockfishPerftRate() {
    local start end empty nodes
    start=$(now)
    printf 'uci\nisready\n' | drive "$1" >/dev/null
    empty=$(($(now) - start))
    start=$(now)
    nodes=$({
        echo uci
        echo isready
        for c in "${perftCases[@]}"; do
            echo "position fen ${c#* }"
            echo "go perft ${c%% *}"
        done
    } | drive "$1" | awk '/^Nodes searched/ { s += $3 } END { print s + 0 }')
    end=$(now)
    awk -v n="$nodes" -v t="$((end - start - empty))" 'BEGIN { printf "%.0f\n", n / (t / 1e9) }'
}

# Wall time in ms for the engine to finish every bench position to depth $threadsDepth with
# $2 threads, each on a fresh table.
timeToDepth() {
    local start end
    start=$(now)
    {
        echo uci
        echo "setoption name NumberOfProcessors value $2"
        echo "setoption name Hash value 64"
        echo "setoption name OwnBook value false"
        echo "setoption name Ponder value false"
        echo isready
        for fen in "${benchFens[@]}"; do
            echo ucinewgame
            echo "position fen $fen"
            echo isready
            echo "go depth $threadsDepth"
        done
    } | drive "$1" >/dev/null
    end=$(now)
    echo $(((end - start) / 1000000))
}

if [ -n "$threadsDepth" ]; then
    best1=""; best2=""
    for ((i = 0; i < rounds; ++i)); do
        for n in 1 2; do
            t=$(timeToDepth "$new/zelmark" $n)
            if [ $n = 1 ]; then
                if [ -z "$best1" ] || [ "$t" -lt "$best1" ]; then best1=$t; fi
            elif [ -z "$best2" ] || [ "$t" -lt "$best2" ]; then best2=$t; fi
            echo "round $((i + 1)): $n thread(s) $t ms"
        done
    done
    printf 'depth %s: 1 thread %s ms, 2 threads %s ms, speed-up %.3f\n' "$threadsDepth" \
        "$best1" "$best2" "$(awk -v a="$best1" -v b="$best2" 'BEGIN { print a / b }')"
    exit 0
fi

echo "new: $new"
echo "old: $old"
compare bench benchRun
compare perft perftRun

[ "$peers" = 1 ] || exit 0

for peer in stockfish toga2 glaurung; do
    path=$(command -v "$peer") || continue
    rate=$(peerSearchRate "$path")
    printf '%-10s search %12.0f nps  ours %.0f (wall clock)  ours/peer %.3f\n' "$peer" "$rate" \
        "$benchOurs" "$(awk -v a="$benchOurs" -v b="$rate" 'BEGIN { print (b > 0 ? a / b : 0) }')"
    if [ "$peer" = stockfish ]; then
        # Ours again, next to Stockfish's, so that both see the same load.
        ours=$(perftRun "$new")
        set -- $ours
        rate=$(stockfishPerftRate "$path")
        printf '%-10s perft  %12.0f nps  ours %.0f (wall clock)  ours/peer %.3f\n' "$peer" \
            "$rate" "$3" "$(awk -v a="$3" -v b="$rate" 'BEGIN { print (b > 0 ? a / b : 0) }')"
    fi
done
