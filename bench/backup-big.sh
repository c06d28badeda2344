#!/usr/bin/env bash
# A full backup of 12 large files (2.5 GB), half of it incompressible beside its peers.
# needs: bench_make_input bench_engine KTImage KTNone KTZstd
set -euo pipefail
source "$(dirname "$0")/lib/backup.bash"
backup_benchmark big "$@"
