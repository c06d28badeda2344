# Shared by the scripts that time the engine beside its peers.
#
# What falsifies such numbers, and what is done about it: the input is read once before; the peers take
# turns, so that what disturbs one disturbs all; old targets are moved aside and removed at the end, because
# making many files soon after deleting many is slow on ext4. Writing back is part of the time of everyone
# who syncs; `sync` between the runs keeps it out of the next one's.

export RESTIC_PASSWORD=benchmark BORG_UNKNOWN_UNENCRYPTED_REPO_ACCESS_IS_OK=yes
export BORG_RELOCATED_REPO_ACCESS_IS_OK=yes

# Sets folder: the one given, which keeps the input for the next time, or a temporary one.
open_folder() { # [folder]
    folder=${1:-}
    keep=1
    if [ -z "$folder" ]; then
        folder=$(mktemp -d "${TMPDIR:-/tmp}/velmora-bench-XXXXXX")
        keep=0
    fi
    mkdir -p "$folder/old"
    export BORG_BASE_DIR=$folder/borg-base
}

close_folder() { if [ $keep -eq 0 ]; then rm -rf "$folder"; else rm -rf "$folder/old"; fi; }

# Sets input: a tree of this kind in the folder.
make_input() { # kind
    input=$folder/$1
    if [ ! -e "$input.made" ]; then
        "$VELMORA_BUILD/bench/bench_make_input" "$1" "$input"
        touch "$input.made"
        sync
    fi
    tar -cf - -C "$input" . | cat >/dev/null
}

# Sets peers to those of the given programs that are installed, and says which are not.
find_peers() { # peer...
    peers=()
    local peer
    for peer in "$@"; do
        if ! [[ $peer =~ ^(restic|borg)$ ]] || command -v "$peer" >/dev/null; then
            peers+=("$peer")
        else
            echo "$peer is not installed"
        fi
    done
}

move_aside() { # path...
    local old
    for old in "$@"; do
        [ ! -e "$old" ] || mv "$old" "$folder/old/$(basename "$old")-$RANDOM$RANDOM"
    done
}

median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# Runs prepare_PEER and, timed, run_PEER of every peer, so many rounds; prints medians, as ratio to the
# second peer, and what size_PEER says, where there is one. What run_PEER prints is in FOLDER/out-PEER.
take_turns() { # rounds
    local rounds=$1 round peer
    declare -A walls=() cpus=() sizes=()
    for ((round = 1; round <= rounds; round++)); do
        for peer in "${peers[@]}"; do
            "prepare_$peer"
            sync
            local begin=$EPOCHREALTIME out wall
            TIMEFORMAT='%U %S'
            out=$({ time "run_$peer" >"$folder/out-$peer" 2>"$folder/log"; } 2>&1) || {
                cat "$folder/log" >&2
                return 1
            }
            wall=$(awk "BEGIN { print $EPOCHREALTIME - $begin }")
            walls[$peer]+="$wall "
            cpus[$peer]+="$(awk '{ print $1 + $2 }' <<<"$out") "
            if declare -F "size_$peer" >/dev/null; then sizes[$peer]=$("size_$peer"); fi
        done
    done
    local base
    base=$(median ${walls[${peers[1]}]})
    printf '%-22s %9s %9s %11s %9s\n' "" "wall s" "ratio" "processor s" "MB"
    for peer in "${peers[@]}"; do
        wall=$(median ${walls[$peer]})
        printf '%-22s %9.3f %9.2f %11.2f %9s\n' "${titles[$peer]:-$peer}" "$wall" \
            "$(awk "BEGIN { print $wall / $base }")" "$(median ${cpus[$peer]})" \
            "$([ -z "${sizes[$peer]:-}" ] || awk "BEGIN { printf \"%.1f\", ${sizes[$peer]} / 1000000 }")"
    done
}
declare -A titles=()
