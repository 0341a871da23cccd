#!/usr/bin/env bash
# Runs a pytest file of this directory. Debian's pytest is installed for /usr/bin/python3, not for
# the first python3 on PATH.
set -euo pipefail
source "${0%/*}/ownnetwork.sh"
PYTHONPATH=$(realpath "${0%/*}/../tools")
export PYTHONPATH PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m pytest -q -p no:cacheprovider --tb=short "$@"
