# For a test script that starts the daemon, whose local console has one name in each network
# namespace: sourced, it starts the script again in a namespace of its own, or, where the system does
# not permit that, in turn with the other such tests (as e2e/main.cpp does).
if [[ -z ${KELP_OWN_NETWORK-} ]]; then
    export KELP_OWN_NETWORK=1
    if unshare -rn ip link set lo up 2>/dev/null; then
        exec unshare -rn sh -c 'ip link set lo up && exec "$0" "$@"' "$0" "$@"
    fi
    exec flock -o /tmp "$0" "$@"
fi
