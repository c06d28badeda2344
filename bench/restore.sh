#!/usr/bin/env bash
# The whole of a backup, one file of it, one directory, and a check of every byte, beside the peers.
# usage: bench/run restore [FOLDER [ROUNDS [KIND]]]
# needs: bench_make_input bench_engine KTImage KTNone KTZstd
set -euo pipefail
source "$(dirname "$0")/lib/peers.bash"
open_folder "${1:-}"
rounds=${2:-3}
kind=${3:-small}
make_input "$kind"
engine=$VELMORA_BUILD/bench/bench_engine
kept=$folder/kept-$kind  # the backups that are read
find_peers velmora tar_zstd restic borg
titles[tar_zstd]="zstd -d | tar x"

if [ ! -e "$kept.made" ]; then
    mkdir -p "$kept"
    "$engine" backup "$input" "$kept/velmora" >/dev/null
    tar -cf - -C "$input" . | zstd -q -3 -T2 -f -o "$kept/backup.tar.zst"
    for peer in "${peers[@]}"; do
        case $peer in
            restic) (restic -q init -r "$kept/restic" && cd "$input" && restic -q backup -r "$kept/restic" .) >/dev/null ;;
            borg) borg init -e none "$kept/borg" 2>/dev/null && (cd "$input" && borg create -C zstd,3 "$kept/borg::one" .) ;;
        esac
    done
    sync
    touch "$kept.made"
fi
cat "$kept"/velmora/*/*.zst "$kept/backup.tar.zst" >/dev/null

to=$folder/restored
fresh() { move_aside "$to-$1"; mkdir -p "$to-$1"; }
prepare_velmora() { fresh velmora; }
prepare_tar_zstd() { fresh tar_zstd; }
prepare_restic() { fresh restic; }
prepare_borg() { fresh borg; }

echo "Restore of the whole, $kind, median of $rounds rounds"
run_velmora() { "$engine" restore "$kept/velmora" "$to-velmora"; }
run_tar_zstd() { zstd -q -d -c "$kept/backup.tar.zst" | tar -xf - -C "$to-tar_zstd"; }
run_restic() { restic -q restore latest -r "$kept/restic" --target "$to-restic"; }
run_borg() { (cd "$to-borg" && borg extract "$kept/borg::one"); }
take_turns "$rounds"
awk '{ print "Peak memory of ours: " $3 " MB" }' "$folder/out-velmora"

# A file of the middle, so that who must read up to it reads half.
part() {
    echo "Restore of $1, median of $rounds rounds"
    run_velmora() { "$engine" restore "$kept/velmora" "$to-velmora" "$path"; }
    run_tar_zstd() { zstd -q -d -c "$kept/backup.tar.zst" | tar -xf - -C "$to-tar_zstd" "./$path"; }
    run_restic() { restic -q restore latest -r "$kept/restic" --target "$to-restic" --include "/$path"; }
    run_borg() { (cd "$to-borg" && borg extract "$kept/borg::one" "$path"); }
    take_turns "$rounds"
    awk '{ printf "Ours within the engine: %.1f ms\n", $1 * 1000 }' "$folder/out-velmora"
}
path=$(cd "$input" && find . -type f | sort | awk '{ v[NR] = $0 } END { print substr(v[int(NR / 2)], 3) }')
part "one file"
path=$(dirname "$path")
if [ "$path" != . ]; then part "one directory ($(find "$input/$path" | wc -l) entries)"; fi

echo "Check of every byte, $kind, median of $rounds rounds"
find_peers velmora tar_zstd restic borg
titles[tar_zstd]="zstd -t"
run_velmora() { "$engine" verify "$kept/velmora"; }
run_tar_zstd() { zstd -q -t "$kept/backup.tar.zst"; }
run_restic() { restic -q check --read-data -r "$kept/restic"; }
run_borg() { borg check "$kept/borg"; }
take_turns "$rounds"

echo "Comparison with what was saved, $kind, median of $rounds rounds"
find_peers velmora tar_zstd
titles[tar_zstd]="zstd -d | tar --compare"
run_velmora() { "$engine" compare "$kept/velmora" "$input"; }
run_tar_zstd() { zstd -q -d -c "$kept/backup.tar.zst" | tar --compare -f - -C "$input"; }
take_turns "$rounds"
close_folder
