# SPDX-License-Identifier: Apache-2.0
# Sourced by dev outside of the build environment: sets the environment up when that is needed, and
# runs dev again inside of it.
#
# On Debian 13 and newer the host itself is the environment. Anywhere else it is a Debian 13 root in
# the cache folder, entered through private namespaces: whatever is mounted or started inside is
# gone when the command ends, also when it is killed. LUMIVORA_FORCE_ROOT=1 asks for the root anywhere.

readonly kSuite=trixie
readonly kSetUpSpaceGb=6
readonly kMarker=.lumivora-complete
readonly kHere=$project/tools/environment

PATH=$PATH:/usr/sbin:/sbin # debootstrap is there, and users without root do not look there
cache=$(realpath -m "${LUMIVORA_CACHE:-${XDG_CACHE_HOME:-${HOME:-~}/.cache}/lumivora-control}")

packages() { sed -e 's/#.*//' -e 's/[[:space:]]*$//' -e '/^$/d' "$kHere/packages.txt"; }

# check_space FOLDER GIGABYTES
check_space() {
    local free
    free=$(df --output=avail -k "$1" | tail -n 1)
    ((free >= $2 * 1024 * 1024)) ||
        fail "Not enough disk space: $1 has $((free / 1024)) MB free and needs $2 GB; free some, or set LUMIVORA_CACHE to a folder on a larger disk."
}

# The Debian mirror that the host uses, or the public one.
mirror() {
    local uri=
    if [[ -n ${LUMIVORA_MIRROR:-} ]]; then
        uri=$LUMIVORA_MIRROR
    elif command -v apt-get >/dev/null; then
        uri=$(apt-get indextargets --format '$(REPO_URI)' 2>/dev/null | grep -m 1 -E '^https?://.*/debian/?$')
    fi
    printf '%s\n' "${uri:-http://deb.debian.org/debian}"
}

# exec_in_namespaces COMMAND... - as root, or as root of a user namespace; instead of this (sub)shell,
# whose parent, when it ends in whatever way, takes everything inside along (pdeathsig, kill-child)
exec_in_namespaces() {
    local map=()
    ((EUID == 0)) || map=(--map-root-user --map-auto)
    # Bash makes background commands ignore Ctrl-C; inside, that shall work as everywhere.
    exec env --default-signal=INT,QUIT \
        setpriv --pdeathsig KILL \
        unshare "${map[@]}" --mount --propagation private --pid --fork --kill-child "$@"
}

check_namespaces() {
    (exec_in_namespaces true) 2>/dev/null && return
    if ((EUID == 0)); then
        fail "This machine does not let root make mount namespaces (a container without the right to?): run ./dev outside of the container, or give it CAP_SYS_ADMIN."
    elif ! command -v newuidmap >/dev/null; then
        fail "Without root, ./dev needs the package uidmap: install it with 'sudo apt-get install uidmap', or run ./dev as root."
    elif ! grep -qs "^$(id -un):" /etc/subuid; then
        fail "Without root, ./dev needs subordinate user numbers: add them with 'sudo usermod --add-subuids 100000-165535 --add-subgids 100000-165535 $(id -un)', or run ./dev as root."
    else
        fail "This machine does not allow user namespaces: run ./dev as root, or allow them with 'sudo sysctl kernel.unprivileged_userns_clone=1 user.max_user_namespaces=10000'."
    fi
}

# run_logged TITLE LOG COMMAND... - one live line on a terminal, elsewhere a line now and then
run_logged() {
    local title=$1 log=$2 start=$SECONDS shown=-10 pid line
    shift 2
    "$@" </dev/null >>"$log" 2>&1 &
    pid=$!
    while kill -0 "$pid" 2>/dev/null; do
        line=$(tail -n 1 "$log" | tr -dc '[:print:]')
        if [[ -t 2 ]]; then
            printf '\r\e[K%s' "$(printf '%s (%d s): %s' "$title" $((SECONDS - start)) "$line" |
                cut -c "1-$(($(tput cols 2>/dev/null || echo 80) - 1))")" >&2
        elif ((SECONDS - shown >= 10)); then
            shown=$SECONDS
            printf '%s (%d s): %s\n' "$title" $((SECONDS - start)) "$line" >&2
        fi
        sleep 0.5
    done
    [[ -t 2 ]] && printf '\r\e[K' >&2
    wait "$pid" || return
    printf '%s: done in %d s\n' "$title" $((SECONDS - start)) >&2
}

# explain_failure WHAT LOG - ends with the one sentence that helps
explain_failure() {
    if grep -q 'No space left on device' "$2"; then
        fail "The disk of $cache ran full: free $kSetUpSpaceGb GB there, or set LUMIVORA_CACHE to a folder on a larger disk, and run the command again."
    elif grep -qiE 'failed getting release file|could not resolve|unable to resolve|temporary failure resolving|could not connect|network is unreachable|connection (refused|timed out)|unable to fetch|failed to fetch' "$2"; then
        fail "Cannot download from $(mirror): connect this machine to the network (or set http_proxy, or LUMIVORA_MIRROR to a mirror you can reach) and run the command again; details are in $2."
    fi
    fail "$1 failed; the reason is at the end of $2. Run the command again once it is removed."
}

# exec_apt_get ARGUMENTS... - on the host, as root
exec_apt_get() {
    local as_root=()
    ((EUID == 0)) || as_root=(sudo)
    exec setpriv --pdeathsig TERM \
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -y --no-install-recommends "$@"
}

install_debootstrap() {
    command -v debootstrap >/dev/null && return
    ((EUID == 0)) && command -v apt-get >/dev/null ||
        fail "./dev needs debootstrap to make its build environment: install it with 'sudo apt-get install debootstrap', or run ./dev as root."
    local log=$cache/set-up.log
    # One source of many that fails need not matter.
    run_logged 'Looking for packages' "$log" exec_apt_get update
    run_logged 'Installing debootstrap' "$log" exec_apt_get install debootstrap ||
        explain_failure 'Installing debootstrap' "$log"
}

# Roots of former package lists, and what an interrupted set-up left. One in use stays.
remove_stale_roots() {
    local old
    for old in "$cache"/root-*; do
        [[ -d $old && $old != "$root" ]] || continue
        if [[ -e $old/$kMarker ]]; then
            # Half a root must not look like a whole one while it is being removed.
            flock -n "$old/$kMarker" mv "$old" "$old.stale" || continue
            old=$old.stale
        fi
        run_logged 'Removing a former build environment' /dev/null \
            exec_in_namespaces rm -rf --one-file-system "$old"
    done
}

set_up_root() {
    local log=$cache/set-up.log partial=$root.partial
    remove_stale_roots
    check_space "$cache" "$kSetUpSpaceGb"
    : >"$log"
    install_debootstrap
    printf 'Setting up the build environment in %s (once; about two minutes)\n' "$root" >&2
    mkdir -p "$partial"
    run_logged 'Installing Debian 13' "$log" \
        exec_in_namespaces bash "$kHere/make-root.sh" base "$partial" "$kSuite" "$(mirror)" ||
        explain_failure 'Installing Debian 13' "$log"
    run_logged 'Installing compilers, libraries and tools' "$log" \
        exec_in_namespaces bash "$kHere/make-root.sh" packages "$partial" $(packages) ||
        explain_failure 'Installing the packages' "$log"
    mv "$partial" "$root"
}

# Leaves the descriptor `in_use` open, with a lock that keeps the root from being removed.
ensure_root() {
    local lock
    mkdir -p "$cache/home" "$cache/ccache" 2>/dev/null ||
        fail "Cannot write to $cache: set LUMIVORA_CACHE to a folder that you may write to."
    root=$cache/root-$(cat "$kHere/packages.txt" "$kHere/make-root.sh" | sha256sum | cut -c 1-16)
    until hold_root; do
        exec {lock}>"$cache/lock"
        wait_for_lock "$lock" 'another ./dev that is setting up'
        [[ -e $root/$kMarker ]] || set_up_root
        exec {lock}>&-
    done
}

hold_root() {
    [[ -e $root/$kMarker ]] && exec {in_use}<"$root/$kMarker" && flock -s "$in_use" &&
        [[ -e $root/$kMarker ]] # it may have been removed meanwhile
}

# To the first process inside; the one that made the namespaces only waits for it.
end_inside() { kill $(cat "/proc/$inside/task/$inside/children") 2>/dev/null; }

enter_root() {
    check_namespaces
    ensure_root
    exec_in_namespaces bash "$kHere/enter-root.sh" "$root" "$project" "$cache" "$@" <&0 &
    inside=$!
    # At a terminal Ctrl-C reaches everything inside by itself.
    trap '[[ -t 0 ]] || end_inside' INT
    trap end_inside TERM HUP
    local status
    while :; do
        wait "$inside"
        status=$?
        kill -0 "$inside" 2>/dev/null || break
    done
    return "$status"
}

install_on_host() {
    local missing log
    missing=$(comm -23 <(packages | cut -d / -f 1 | sort) \
        <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p' | sort -u))
    [[ -n $missing ]] || return 0
    # sudo asks for its password here, where there is a terminal to answer at.
    ((EUID == 0)) || { command -v sudo >/dev/null && sudo -v; } ||
        fail "Packages are missing: install them as root with 'apt-get install --no-install-recommends" $missing"'."
    mkdir -p "$cache"
    log=$cache/set-up.log
    : >"$log"
    run_logged 'Looking for packages' "$log" exec_apt_get update
    run_logged 'Installing packages' "$log" exec_apt_get install $missing ||
        explain_failure 'Installing packages' "$log"
}

# enter_environment ARGUMENTS... - runs dev with them inside; its exit status is the result
enter_environment() {
    [[ -e /proc/self/fd/0 ]] || exec </dev/null
    # Without this, bash ignores an INT that did not end the command that it waits for.
    trap 'exit 130' INT
    local ID= VERSION_ID=
    [[ -r /etc/os-release ]] && . /etc/os-release
    if [[ $ID == debian && ${VERSION_ID:-99} -ge 13 && -z ${LUMIVORA_FORCE_ROOT:-} ]]; then
        install_on_host
        mkdir -p "$cache"
        LUMIVORA_ENVIRONMENT=host LUMIVORA_CACHE=$cache exec "$project/dev" "$@"
    fi
    enter_root "$@"
}
