# Shared by bench/backup-*.sh: makes the input once, runs the peers in turn, prints medians.
#
# usage of the scripts: bench/run NAME [FOLDER [ROUNDS]]. FOLDER keeps the input for the next time; without
# one it is made in a temporary folder and removed.
#
# What falsifies such numbers, and what is done about it: the input is read once before; the peers take
# turns, so that what disturbs one disturbs all; old targets are moved aside and removed at the end, because
# making many files soon after deleting many is slow on ext4. Writing back is part of the time of everyone
# who syncs; `sync` between the runs keeps it out of the next one's.

backup_benchmark() { # kind folder rounds
    local kind=$1 folder=${2:-} rounds=${3:-3} keep=1
    if [ -z "$folder" ]; then
        folder=$(mktemp -d "${TMPDIR:-/tmp}/velmora-bench-XXXXXX")
        keep=0
    fi
    mkdir -p "$folder/old"
    local input=$folder/$kind
    if [ ! -e "$input.made" ]; then
        "$VELMORA_BUILD/bench/bench_make_input" "$kind" "$input"
        touch "$input.made"
        sync
    fi
    tar -cf - -C "$input" . | cat >/dev/null

    export RESTIC_PASSWORD=benchmark BORG_BASE_DIR=$folder/borg-base
    export BORG_UNKNOWN_UNENCRYPTED_REPO_ACCESS_IS_OK=yes
    local peers=(velmora tar_zstd) missing=()
    local peer
    for peer in restic borg; do
        if command -v "$peer" >/dev/null; then peers+=("$peer"); else missing+=("$peer"); fi
    done
    declare -A walls sizes cpus
    local memory=0 round
    for ((round = 1; round <= rounds; round++)); do
        for peer in "${peers[@]}"; do
            local target=$folder/target-$peer
            for old in "$target" "$target.catalogues"; do
                [ ! -e "$old" ] || mv "$old" "$folder/old/$peer-$RANDOM$RANDOM"
            done
            "prepare_$peer" "$target"
            sync
            local begin=$EPOCHREALTIME out
            TIMEFORMAT='%U %S'
            out=$({ time "run_$peer" "$input" "$target" >"$folder/out" 2>"$folder/log"; } 2>&1) || {
                cat "$folder/log" >&2
                return 1
            }
            local wall
            wall=$(awk "BEGIN { print $EPOCHREALTIME - $begin }")
            walls[$peer]+="$wall "
            cpus[$peer]+="$(awk '{ print $1 + $2 }' <<<"$out") "
            sizes[$peer]=$(du -sb "$target" | cut -f1)
            if [ "$peer" = velmora ]; then
                memory=$(awk -v m="$memory" '{ print ($3 > m) ? $3 : m }' "$folder/out")
            fi
        done
    done

    local files bytes base
    files=$(find "$input" -type f | wc -l)
    bytes=$(du -sb --apparent-size "$input" | cut -f1)
    base=$(median ${walls[tar_zstd]})
    echo "Full backup, $kind: $files files, $((bytes / 1000000)) MB, level 3, median of $rounds rounds"
    printf '%-22s %9s %9s %11s %9s\n' "" "wall s" "ratio" "processor s" "MB"
    for peer in "${peers[@]}"; do
        local wall
        wall=$(median ${walls[$peer]})
        printf '%-22s %9.2f %9.2f %11.2f %9.1f\n' "$(title "$peer")" "$wall" \
            "$(awk "BEGIN { print $wall / $base }")" "$(median ${cpus[$peer]})" \
            "$(awk "BEGIN { print ${sizes[$peer]} / 1000000 }")"
    done
    for peer in "${missing[@]}"; do echo "$peer is not installed"; done
    echo "Peak memory of ours: $memory MB"
    if [ $keep -eq 0 ]; then rm -rf "$folder"; else rm -rf "$folder/old"; fi
}

title() { [ "$1" = tar_zstd ] && echo "tar | zstd -3 -T2" || echo "$1"; }
median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

prepare_velmora() { :; }
run_velmora() { "$VELMORA_BUILD/bench/bench_engine_backup" "$1" "$2"; }
prepare_tar_zstd() { mkdir -p "$1"; }
run_tar_zstd() { tar -cf - -C "$1" . | zstd -q -3 -T2 -o "$2/backup.tar.zst"; }
prepare_restic() { restic -q init -r "$1" >/dev/null; }
run_restic() { restic -q backup -r "$2" "$1"; }
prepare_borg() { borg init -e none "$1" >/dev/null 2>&1; }
run_borg() { borg create -C zstd,3 "$2::one" "$1"; }
