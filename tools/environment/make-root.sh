# SPDX-License-Identifier: Apache-2.0
# Makes the Debian root, as root in namespaces of its own: what it mounts vanishes with them.
#   make-root.sh base ROOT SUITE MIRROR
#   make-root.sh packages ROOT PACKAGE...
set -euo pipefail

step=$1 root=$2
shift 2

# A user namespace cannot make device nodes, but can show those that there are.
mkdir -p "$root/dev"
mount -t tmpfs -o mode=755 tmpfs "$root/dev"
for node in null zero full random urandom tty console ptmx; do
    [[ -e /dev/$node ]] || continue
    : >"$root/dev/$node"
    mount --bind "/dev/$node" "$root/dev/$node"
done

make_base() {
    local suite=$1 mirror=$2
    # With this name of a container debootstrap takes the nodes above as they are.
    container=lxc debootstrap --variant=minbase --include=ca-certificates "$suite" "$root" "$mirror"
    cp --remove-destination -L /etc/resolv.conf "$root/etc/resolv.conf"
    {
        echo 'APT::Install-Recommends "false";'
        echo 'Acquire::Languages "none";'
        # In a user namespace there is no other user to drop to.
        echo 'APT::Sandbox::User "root";'
        if command -v apt-config >/dev/null; then
            apt-config dump | grep -E '^Acquire::[^ ]*(Proxy|Check-Valid-Until|Check-Date)' || true
        fi
    } >"$root/etc/apt/apt.conf.d/50lumivora"
    # A root that was interrupted is thrown away, so nothing has to reach the disk in order; and
    # nobody reads manuals in it.
    {
        echo force-unsafe-io
        echo 'path-exclude=/usr/share/doc/*'
        echo 'path-exclude=/usr/share/man/*'
        echo 'path-exclude=/usr/share/locale/*'
    } >"$root/etc/dpkg/dpkg.cfg.d/lumivora"
    echo "deb $mirror $suite main" >"$root/etc/apt/sources.list"
}

install_packages() {
    export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin
    # No service of the environment may start by itself.
    printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
    chmod +x "$root/usr/sbin/policy-rc.d"
    mount -t proc proc "$root/proc" || mount --rbind /proc "$root/proc"

    # PACKAGE/SUITE: the other suite counts for nothing but that package.
    local package suite names=() mirror
    mirror=$(cut -d ' ' -f 2 "$root/etc/apt/sources.list")
    for package; do
        names+=("${package%%/*}")
        [[ $package == */* ]] || continue
        suite=${package#*/}
        echo "deb $mirror $suite main" >"$root/etc/apt/sources.list.d/$suite.list"
        printf 'Package: *\nPin: release n=%s\nPin-Priority: -10\n' "$suite" >"$root/etc/apt/preferences.d/$suite"
        printf 'Package: %s\nPin: release n=%s\nPin-Priority: 900\n' "${package%%/*}" "$suite" >"$root/etc/apt/preferences.d/${package%%/*}"
    done
    chroot "$root" apt-get update
    chroot "$root" apt-get install -y "${names[@]}"
    chroot "$root" apt-get clean
    touch "$root/.lumivora-complete"
}

case $step in
base) make_base "$@" ;;
packages) install_packages "$@" ;;
esac
