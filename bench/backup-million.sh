#!/usr/bin/env bash
# Memory of the engine while it saves 1,000,000 files. usage: bench/run backup-million [FOLDER]
# needs: bench_make_input bench_engine KTImage KTNone KTZstd
set -euo pipefail
folder=${1:-$(mktemp -d "${TMPDIR:-/tmp}/velmora-bench-XXXXXX")}
mkdir -p "$folder"
if [ ! -e "$folder/million.made" ]; then
    "$VELMORA_BUILD/bench/bench_make_input" million "$folder/million"
    touch "$folder/million.made"
fi
target=$folder/target-$RANDOM$RANDOM
"$VELMORA_BUILD/bench/bench_engine" backup "$folder/million" "$target" |
    awk '{ printf "1,000,000 files: %.1f s, peak memory %.1f MB (to reach: under 120)\n", $1, $3 }'
rm -rf "$target" "$target.catalogues"
[ $# -gt 0 ] || rm -rf "$folder"
