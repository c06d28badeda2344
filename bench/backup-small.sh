#!/usr/bin/env bash
# A full backup of 120,000 small files (1.5 GB) beside its peers.
# needs: bench_make_input bench_engine KTImage KTNone KTZstd
set -euo pipefail
source "$(dirname "$0")/lib/backup.bash"
backup_benchmark small "$@"
