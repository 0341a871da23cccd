#!/usr/bin/env bash
# Installs the packages, the daemon's over an older build, and purges them, on an overlay of this
# system that ends with the script. Nothing is started, because systemd does not run there. Needs root.
# Usage: package_test.sh KELP_FILE KELP_TOOLS_FILE
set -euo pipefail
if [[ -z ${KELP_OWN_MOUNTS-} ]]; then
    KELP_OWN_MOUNTS=1 exec unshare --mount "$0" "$@"
fi
fail() { echo "FAILED: $*" >&2; exit 1; }
for script in postinst prerm postrm; do
    dpkg-deb --info "$1" $script | grep -q kelp.service || fail "$script ignores the service"
done

dir=$(mktemp -d)
trap 'umount "$dir" && rmdir "$dir"' EXIT
mount -t tmpfs tmpfs "$dir"
mkdir "$dir"/{new,work,root}
mount -t overlay overlay -o "lowerdir=/,upperdir=$dir/new,workdir=$dir/work" "$dir/root" || {
    echo "SKIPPED: no overlay can be mounted here, so nothing is installed"
    exit 0
}
trap 'umount "$dir/root" "$dir" && rmdir "$dir"' EXIT
inside() { chroot "$dir/root" "$@"; }

dpkg-deb --raw-extract "$1" "$dir/older"
sed -i 's/^\(Version: [^+]*\).*/\1/' "$dir/older/DEBIAN/control"
dpkg-deb --build "$dir/older" "$dir/root/older.deb" >/dev/null
cp "$1" "$dir/root/newer.deb"
inside dpkg --install /older.deb
[[ $(inside dpkg --install /newer.deb) == *"over (0."* ]] || fail "not an upgrade"
[[ "$(inside kelp-check --version)" == *" $(dpkg-deb --field "$1" Version)" ]] || fail "version"

cp "$2" "$dir/root/tools.deb"
inside dpkg --install /tools.deb
inside /usr/bin/python3 -c 'import kelptest, kelptest.answer'

# What a service that was enabled and ran leaves.
inside systemctl --quiet enable kelp
mkdir -p "$dir/root/var/lib/private/kelp"
ln -s private/kelp "$dir/root/var/lib/kelp"
inside dpkg --purge kelp kelp-tools
left=$(find "$dir/new" -iname '*kelp*')
[[ -z $left ]] || fail "left after a purge: $left"
