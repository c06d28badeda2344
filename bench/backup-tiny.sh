#!/usr/bin/env bash
# A full backup of 500,000 tiny files beside its peers.
# needs: bench_make_input bench_engine KTImage KTNone KTZstd
set -euo pipefail
source "$(dirname "$0")/lib/backup.bash"
backup_benchmark tiny "$@"
