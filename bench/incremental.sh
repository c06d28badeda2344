#!/usr/bin/env bash
# An incremental backup of a tree in which nothing has changed, beside listing it and the peers.
# usage: bench/run incremental [FOLDER [ROUNDS [KIND]]]
# needs: bench_make_input bench_engine KTImage KTNone KTZstd
set -euo pipefail
source "$(dirname "$0")/lib/peers.bash"
open_folder "${1:-}"
rounds=${2:-3}
kind=${3:-small}
make_input "$kind"
engine=$VELMORA_BUILD/bench/bench_engine
find_peers velmora find restic borg
titles[find]="find -printf"
for peer in "${peers[@]}"; do move_aside "$folder/base-$peer" "$folder/base-$peer.catalogues"; done
"$engine" backup "$input" "$folder/base-velmora" >/dev/null
for peer in "${peers[@]}"; do
    case $peer in
        restic) restic -q init -r "$folder/base-restic" >/dev/null && restic -q backup -r "$folder/base-restic" "$input" ;;
        borg) borg init -e none "$folder/base-borg" >/dev/null 2>&1 && borg create -C zstd,3 "$folder/base-borg::one" "$input" ;;
    esac
done
for peer in "${peers[@]}"; do eval "prepare_$peer() { :; }"; done
run_velmora() { "$engine" incremental "$input" "$folder/base-velmora"; }
run_find() { find "$input" -printf '%p %s %T@ %C@ %i\n' | cat >/dev/null; }
run_restic() { restic -q backup -r "$folder/base-restic" "$input"; }
run_borg() { borg create -C zstd,3 "$folder/base-borg::$RANDOM$RANDOM" "$input"; }
echo "Incremental backup, nothing changed, $kind: $(find "$input" -type f | wc -l) files, median of $rounds rounds"
take_turns "$rounds"
awk '{ print "Peak memory of ours: " $3 " MB" }' "$folder/out-velmora"
close_folder
