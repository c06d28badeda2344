# Shared by bench/backup-*.sh. usage of the scripts: bench/run NAME [FOLDER [ROUNDS]]
source "$(dirname "${BASH_SOURCE[0]}")/peers.bash"

backup_benchmark() { # kind [folder [rounds]]
    open_folder "${2:-}"
    make_input "$1"
    local rounds=${3:-3}
    find_peers velmora tar_zstd restic borg
    titles[tar_zstd]="tar | zstd -3 -T2"
    echo "Full backup, $1: $(find "$input" -type f | wc -l) files," \
        "$(($(du -sb --apparent-size "$input" | cut -f1) / 1000000)) MB, level 3, median of $rounds rounds"
    take_turns "$rounds"
    awk '{ print "Peak memory of ours: " $3 " MB" }' "$folder/out-velmora"
    close_folder
}

fresh() { move_aside "$folder/target-$1" "$folder/target-$1.catalogues"; }
size() { du -sb "$folder/target-$1" | cut -f1; }

prepare_velmora() { fresh velmora; }
run_velmora() { "$VELMORA_BUILD/bench/bench_engine" backup "$input" "$folder/target-velmora"; }
size_velmora() { size velmora; }
prepare_tar_zstd() { fresh tar_zstd; mkdir -p "$folder/target-tar_zstd"; }
run_tar_zstd() { tar -cf - -C "$input" . | zstd -q -3 -T2 -o "$folder/target-tar_zstd/backup.tar.zst"; }
size_tar_zstd() { size tar_zstd; }
prepare_restic() { fresh restic; restic -q init -r "$folder/target-restic" >/dev/null; }
run_restic() { restic -q backup -r "$folder/target-restic" "$input"; }
size_restic() { size restic; }
prepare_borg() { fresh borg; borg init -e none "$folder/target-borg" >/dev/null 2>&1; }
run_borg() { borg create -C zstd,3 "$folder/target-borg::one" "$input"; }
size_borg() { size borg; }
