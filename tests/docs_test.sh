#!/usr/bin/env bash
# Runs every command of a page of docs/ unchanged, except for the port. Arguments: the page, the
# directories of the built programs.
set -euo pipefail
page=$(realpath "$1")
export PATH=$2:$3:/usr/bin:$PATH EXAMPLES=${page%/*}/../examples # Debian's pytest has labgrid
export PYTHONPATH=${page%/*}/../tools
command -v socat >/dev/null || { echo "socat is not installed" && exit 77; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
port=$((20000 + RANDOM % 10000))
while (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do
    port=$((port + 1))
done
# Background jobs of the page end with this script, also on failure.
echo 'trap "exit 1" TERM; trap "kill \$(jobs -p) 2>/dev/null || true" EXIT' >commands
sed -n '/^```sh$/,/^```$/{/^```/d;p}' "$page" | sed "s/\b3000\b/$port/g" >>commands
grep -q kelp-send commands
# Job control, so that %1 works as in an interactive shell.
set -m
status=0
PS4='$ ' timeout 120 bash -euxm commands || status=$?
((status == 0)) || tail -n 30 kelp.log
exit "$status"
