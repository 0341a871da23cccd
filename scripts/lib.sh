# Functions shared by the scripts; source it from bash.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Packages for the build and the demo, and the additional ones of the test suite.
build_packages=(g++ cmake ninja-build nlohmann-json3-dev libgtest-dev help2man socat iproute2)
test_packages=(python3-jsonschema python3-labgrid python3-pytest)

# need PACKAGE...: installs the missing Debian packages. If none is missing, it changes nothing and
# needs neither network nor root.
need() {
    local missing=() package
    for package in "$@"; do
        if [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            missing+=("$package")
        fi
    done
    if ((${#missing[@]} == 0)); then
        return
    fi
    local as_root=()
    if ((EUID != 0)); then
        as_root=(sudo)
    fi
    if ! command -v apt-get >/dev/null || { ((EUID != 0)) && ! command -v sudo >/dev/null; }; then
        echo "$0: please install these Debian packages first: ${missing[*]}" >&2
        exit 1
    fi
    echo "installing ${missing[*]}"
    # Set for apt-get itself: sudo does not pass the environment on.
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -qq install -y --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]: configures and builds; all targets when none is named.
build() {
    local preset=$1
    shift
    local options=()
    if command -v ccache >/dev/null; then
        options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    cmake --preset "$preset" "${options[@]}" >/dev/null
    cmake --build --preset "$preset" ${1:+--target "$@"}
}

# wait_for SECONDS COMMAND...: runs the command until it succeeds.
wait_for() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        if ((SECONDS >= deadline)); then
            echo "$0: timed out waiting for: $*" >&2
            return 1
        fi
        sleep 0.05
    done
}
