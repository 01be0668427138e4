#!/usr/bin/env bash
# Rewrites the expected outputs of the igp-lsdb end-to-end tests from the tool as built now, then
# shows what changed. Review every changed line against the capture's README and the routers' own
# `show isis database` (decoder/tests/data/frr-show) before committing: a golden file is only as right as
# the review it had.
#   bash tools/igp-lsdb/tests/bless.sh [BUILD_DIR]     (default build/default)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../../.."
build=${1:-build/default}
cmake --build "$build" --target igp-lsdb
touch tools/igp-lsdb/tests/expected/empty
IGP_LSDB_BLESS=1 ctest --test-dir "$build" -R '^igp-lsdb\.' --output-on-failure || true
ctest --test-dir "$build" -R '^igp-lsdb\.'
git status --short tools/igp-lsdb/tests/expected
git diff --stat tools/igp-lsdb/tests/expected
