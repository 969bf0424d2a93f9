#!/bin/sh
# Instructions per shade() call and per sample, engine beside the fused loop
# and the per-channel floor, counted by callgrind (load does not move them).
# Usage: bench/callgrind_shade.sh [build dir (build-release)] [cases (abcdefg)] [calls (200)] [--stack-frames]
# The fixed cost per call and the cost per sample come from batches 8 and 64.
set -eu
build=${1:-build-release}
cases=${2:-abcdefg}
calls=${3:-200}
frames=${4:-}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out/cg.%p" \
    "$build/bin/bench_shade_throughput" --cases="$cases" --callgrind="$calls" $frames >/dev/null 2>"$out/log" || { cat "$out/log"; exit 1; }
# Each dump: "desc: Trigger: Client Request: a/64/engine" and "totals: N".
for f in "$out"/cg.*; do
    awk '/^desc: Trigger: Client Request:/ {label=$5} /^totals:/ {print label, $2}' "$f"
done | awk -v calls="$calls" '
{ split($1, k, "/"); ir[k[1], k[2], k[3]] = $2 / calls; seen[k[1]] = 1 }
END {
    printf "%-4s %-7s %12s %12s %12s %12s %12s\n", "case", "side", "per call 8", "per call 64", "per sample", "fixed/call", "x fused @64"
    n = split("a b c d e f g", letters, " ")
    for (j = 1; j <= n; ++j) {
        c = letters[j]; if (!(c in seen)) continue
        split("engine fused floor", sides, " ")
        for (s = 1; s <= 3; ++s) {
            side = sides[s]; i8 = ir[c, 8, side]; i64 = ir[c, 64, side]
            per = (i64 - i8) / 56; fixed = i8 - 8 * per
            printf "%-4s %-7s %12.0f %12.0f %12.1f %12.0f %12.2f\n", c, side, i8, i64, per, fixed, i64 / ir[c, 64, "fused"]
        }
    }
}'
