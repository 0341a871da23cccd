#!/usr/bin/env bash
# Installs a build into a scratch root, runs the installed programs, and checks the manual pages and
# the service unit. Usage: install_test.sh CMAKE BUILD_DIRECTORY
set -euo pipefail
cmake=$1 build=$2 console=@/dev/socket/kelp root=$(mktemp -d) jobs=()
trap '((${#jobs[@]} == 0)) || kill "${jobs[@]}" || true; wait; rm -rf "$root"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }
have() { command -v "$1" >/dev/null || { echo "SKIPPED: no $1 here"; return 1; }; }

DESTDIR=$root "$cmake" --install "$build" --prefix /usr >"$root/manifest"
PATH=$root/usr/sbin:$root/usr/bin:$PATH
examples=$root/usr/share/doc/kelp/examples
for source in kelp "${0%/*}"/../tools/*/kelp-*.cpp; do
    name=$(basename "$source" .cpp)
    [[ $(command -v "$name") == "$root/usr/"* ]] || fail "$name is not installed"
    [[ $name == kelp || $("$name" --version) == "$name "* ]] || fail "$name --version"
    ! have help2man || [[ -n $(find "$root/usr/share/man" -name "$name.[18]*") ]] ||
        fail "$name has no manual page"
done

kelp-check --no-paths "$root/usr/share/kelp/kelp.json" >"$root/whole" || fail "the shipped example"
for key in $(grep -oE '"[a-z0-9-]+":' "$root/whole" | tr -d '":' | sort -u); do
    grep -qE "^\.BR? $key( |\$)" "$root/usr/share/man/man5/kelp.json.5" ||
        fail "kelp.json.5 says nothing of $key"
done

# The installed example, with sockets in this directory.
sed "s#/dev/socket/#$root/#" "$root/usr/share/kelp/kelp.json" >"$root/kelp.json"
sed "s#/tmp/kelp-bench/#$root/#" "$examples/bench-peers.json" >"$root/peers.json"
kelp-peer "$root/peers.json" >"$root/ready" & jobs+=($!)
kelp "--file=$root/kelp.json" 2>"$root/log" & jobs+=($!)
status=3
for ((i = 0; i < 200 && status == 3; i++)); do
    sleep 0.05
    [[ -s $root/ready ]] || continue
    kelp-send $console 'AT+WIFI?' >"$root/answer" 2>/dev/null && status=0 || status=$?
done
grep -q '^+WIFI:1,-47' "$root/answer" || fail "AT+WIFI?: $status" "$(cat "$root"/{answer,log})"

for page in "$root"/usr/share/man/man?/*; do
    have man || break
    warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' man --warnings -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
    [[ -z $warnings ]] || fail "$page: $warnings"
done
if [[ -d /run/systemd || -w /run ]] && have systemd-analyze; then
    sed "s#\([= -]\)/usr/#\1$root/usr/#" "$root"/usr/lib/systemd/system/kelp.service \
        >"$root/kelp.service"
    complaints=$(systemd-analyze verify --man=no "$root/kelp.service" 2>&1) || true
    [[ -z $complaints ]] || fail "$complaints"
    systemd-analyze security --offline=true --threshold=16 "$root/kelp.service" >"$root/exposure" ||
        fail "$(tail -n 1 "$root/exposure")"
fi
