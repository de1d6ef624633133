# SPDX-License-Identifier: Apache-2.0
# The first process inside: shows the root what it needs of the host, runs dev in it, and takes
# everything along when it ends.
#   enter-root.sh ROOT PROJECT CACHE DEV-ARGUMENT...
set -uo pipefail

root=$1 project=$2 cache=$3
shift 3

# show PATH [OPTIONS] - a folder or socket of the host, at its own path
show() {
    local target=$root$1
    [[ -e $1 ]] || return 0
    if [[ -d $1 ]]; then mkdir -p "$target"; else mkdir -p "${target%/*}" && : >>"$target"; fi
    mount --"${2:-bind}" "$1" "$target"
}

set -e
show /dev rbind
show /sys rbind
show /tmp rbind
mount -t proc proc "$root/proc" 2>/dev/null || mount --rbind /proc "$root/proc"
show "$cache"
show "$project"
# Prebuilt things that this checkout shares with others; nothing here may change them.
shared=${project%/*}/shared
if [[ -d $shared ]]; then
    show "$shared"
    mount -o remount,bind,ro "$root$shared"
fi
# The desktop session, where there is one: PipeWire, Wayland and D-Bus sockets, and X.
[[ -z ${XDG_RUNTIME_DIR:-} ]] || show "$XDG_RUNTIME_DIR" rbind
[[ -z ${XAUTHORITY:-} ]] || show "$XAUTHORITY"
[[ ! -e /etc/resolv.conf ]] || cmp -s /etc/resolv.conf "$root/etc/resolv.conf" ||
    cp --remove-destination -L /etc/resolv.conf "$root/etc/resolv.conf"
set +e

# Nothing of the host's own environment but what the programs inside are meant to see.
keep=()
while IFS= read -r name; do
    case $name in
    TERM | COLORTERM | NO_COLOR | TZ | CI | DISPLAY | WAYLAND_DISPLAY | XAUTHORITY | \
        XDG_RUNTIME_DIR | XDG_SESSION_TYPE | XDG_CURRENT_DESKTOP | DBUS_SESSION_BUS_ADDRESS | \
        *_proxy | *_PROXY | LUMIVORA_* | CMAKE_* | CTEST_* | GTEST_* | QT_* | GST_* | PIPEWIRE_* | \
        PULSE_* | NINJA_STATUS)
        keep+=("$name=${!name}")
        ;;
    esac
done < <(compgen -e)

# The command decides how it ends at Ctrl-C; this only waits for it.
trap : INT
trap 'kill "$child" 2>/dev/null' TERM
env -i --default-signal=INT,QUIT "${keep[@]}" \
    HOME="$cache/home" LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    LUMIVORA_ENVIRONMENT="${root##*-}" LUMIVORA_CACHE="$cache" \
    CCACHE_DIR="$cache/ccache" CCACHE_MAXSIZE=4G CCACHE_BASEDIR="$project" CCACHE_NOHASHDIR=1 \
    chroot "$root" bash -c 'cd "$1" && shift && exec ./dev "$@"' bash "$project" "$@" <&0 &
child=$!
while :; do
    wait "$child"
    status=$?
    kill -0 "$child" 2>/dev/null || break
done
exit "$status"
