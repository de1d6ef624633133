#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Tests of ./dev itself: how it sets its environment up and enters it, and that it leaves nothing
# behind. Downloads nothing: where a set-up has to fail or hang, a false debootstrap does that.
#   tests/environment/test_dev.sh [TEST...]
set -u

cd -P "$(dirname "${BASH_SOURCE[0]}")/../.." || exit 1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failures=0

# expect WHAT COMMAND... - one line when the command fails
expect() {
    "${@:2}" && return
    printf '  failed: %s\n' "$1"
    tail -n 5 "$work/output" | sed 's/^/    | /'
    failures=$((failures + 1))
}

matches() { grep -qE -- "$1" "$work/output"; }
lines() { (($(grep -c '' "$work/output") == $1)); }
is() { [[ $1 == "$2" ]]; }

# dev ARGUMENT... - what it says goes to the file output, its exit status to $status
dev() {
    ./dev "$@" >"$work/output" 2>&1
    status=$?
}

# false_program NAME - a program of that name, its text on stdin, is found before the real one
false_program() {
    mkdir -p "$work/bin"
    { printf '#!/bin/bash\n'; cat; } >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

# with_empty_cache COMMAND... - in an environment that is not set up, with the false programs
with_empty_cache() {
    LUMIVORA_CACHE=$work/cache LUMIVORA_FORCE_ROOT=1 PATH=$work/bin:$PATH "$@"
}

# waits_for COMMAND... - up to 20 seconds, so that a busy machine does not matter
waits_for() {
    local left
    for ((left = 200; left > 0; left--)); do
        "$@" && return
        sleep 0.1
    done
    return 1
}

runs() { pgrep -f "$1" >/dev/null; }
is_gone() { ! runs "$1"; }

# ends PID - bounded, so that a ./dev that does not end fails the test and no more; $status as above
ends() {
    waits_for is_no_process "$1" || kill -KILL "$1"
    wait "$1" 2>/dev/null
    status=$?
    ((status != 137)) || is "$signal" KILL
}
is_no_process() { [[ $(ps -o stat= -p "$1") != [^Z]* ]]; }
no_trusted_root() { ! compgen -G "$work/cache/root-*/.lumivora-complete" >/dev/null; }

# A command line to look for in the list of processes.
unique_sleep() { printf 'sleep %d.%d' 4000 "$RANDOM$RANDOM"; }

hanging_debootstrap() {
    false_program debootstrap <<'TEXT'
root=${@: -2:1}
mkdir -p "$root/usr/bin"
echo "$root" >>"${0%/*}/started"
echo 'I: Extracting the base system...'
sleep 4000.777
TEXT
}

started_set_ups() { [[ -e $work/bin/started ]] && (($(wc -l <"$work/bin/started") == $1)); }

# --- What needs no environment

help_withoutEnvironment_tellsAllCommands() {
    with_empty_cache dev --help
    expect 'exit status 0' is "$status" 0
    local command
    for command in run test build bench windows lint format shell; do
        expect "tells of $command" matches "^  $command "
    done
    for command in test build bench windows lint format shell; do
        with_empty_cache dev "$command" --help
        expect "$command --help exits 0" is "$status" 0
        expect "$command --help shows its usage" matches "^usage: ./dev $command"
    done
    expect 'nothing was set up' test ! -e "$work/cache"
}

unknownCommand_anywhere_isAUsageError() {
    with_empty_cache dev frobnicate
    expect 'exit status 2' is "$status" 2
    expect 'names it' matches frobnicate
    expect 'in one line' lines 1
    with_empty_cache dev
    expect 'no command: exit status 2' is "$status" 2
}

# --- Set-up

setUp_withoutNetwork_saysSoInOneSentence() {
    false_program debootstrap <<<'echo "E: Failed getting release file http://deb.debian.org/debian/dists/trixie/Release"; exit 1'
    with_empty_cache dev shell true
    expect 'exit status 1' is "$status" 1
    expect 'says what to do' matches '^dev: Cannot download .* connect this machine to the network'
    expect 'no root is trusted' no_trusted_root
}

setUp_withoutDiskSpace_saysSoInOneSentence() {
    false_program df <<<'printf "Avail\n1000000\n"'
    with_empty_cache dev shell true
    expect 'exit status 1' is "$status" 1
    expect 'says what to do' matches '^dev: Not enough disk space.* free some'
    expect 'in one line' lines 1
}

setUp_whenTheDiskFillsUp_saysSoInOneSentence() {
    false_program debootstrap <<<'echo "tar: ./usr/bin/x: Cannot write: No space left on device"; exit 1'
    with_empty_cache dev shell true
    expect 'exit status 1' is "$status" 1
    expect 'says what to do' matches '^dev: The disk .* ran full: free '
}

setUp_withoutNamespaces_saysSoInOneSentence() {
    false_program unshare <<<'echo "unshare: unshare failed: Operation not permitted" >&2; exit 1'
    with_empty_cache dev shell true
    expect 'exit status 1' is "$status" 1
    expect 'says what to do' matches '^dev: .*run ./dev (outside|as root)'
    expect 'in one line' lines 1
}

setUp_inFolderThatCannotBeWritten_saysSoInOneSentence() {
    touch "$work/file"
    LUMIVORA_CACHE=$work/file/cache LUMIVORA_FORCE_ROOT=1 dev shell true
    expect 'exit status 1' is "$status" 1
    expect 'says what to do' matches '^dev: Cannot write .* set LUMIVORA_CACHE'
    expect 'in one line' lines 1
}

setUp_killedInTheMiddle_leavesNothingRunningAndNothingTrusted() {
    hanging_debootstrap
    local signal count=0 pid
    # A background command of a script ignores INT; --default-signal undoes that.
    for signal in INT TERM KILL; do
        count=$((count + 1))
        with_empty_cache exec env --default-signal=INT ./dev shell true >"$work/output" 2>&1 &
        pid=$!
        expect "$signal: the set-up starts anew" waits_for started_set_ups "$count"
        kill -s "$signal" "$pid"
        expect "$signal: it ends" ends "$pid"
        expect "$signal: the exit status tells of a failure" test "$status" -ne 0
        expect "$signal: nothing runs" waits_for is_gone 'sleep 4000.777'
        expect "$signal: no root is trusted" no_trusted_root
    done
    expect 'nothing is mounted' is "$(grep -c "$work" /proc/self/mountinfo)" 0
}

setUp_whileAnotherOneSetsUp_waitsForIt() {
    hanging_debootstrap
    with_empty_cache exec ./dev shell true >"$work/first" 2>&1 &
    local first=$! second
    expect 'the first one starts' waits_for started_set_ups 1
    with_empty_cache exec ./dev shell true >"$work/output" 2>&1 &
    second=$!
    expect 'the second one says that it waits' waits_for matches '^Waiting for another ./dev'
    local signal=TERM
    kill "$first"
    expect 'the first one ends' ends "$first"
    expect 'the second one goes on when the first one has gone' waits_for started_set_ups 2
    kill "$second"
    expect 'the second one ends' ends "$second"
    expect 'nothing runs' waits_for is_gone 'sleep 4000.777'
}

# --- The environment that is set up

shell_withCommand_passesArgumentsInputAndStatus() {
    dev shell bash -c 'exit 7'
    expect 'exit status 7' is "$status" 7
    dev shell printf '<%s>' 'two words' '' '*'
    expect 'arguments arrive as they are' is "$(cat "$work/output")" '<two words><><*>'
    dev shell cat <<<'from standard input'
    expect 'standard input arrives' is "$(cat "$work/output")" 'from standard input'
    dev shell true <&-
    expect 'works without standard input' is "$status" 0
    dev shell pwd
    expect 'runs in the folder of the project' is "$(cat "$work/output")" "$PWD"
}

shell_inEnvironment_isDebian13OrNewer() {
    dev shell bash -c '. /etc/os-release; ((${VERSION_ID:-99} >= 13)) && command -v g++ cmake ninja'
    expect 'exit status 0' is "$status" 0
}

command_thatLeavesAProcess_takesItAlong() {
    local left
    left=$(unique_sleep)
    dev shell bash -c "setsid $left & exit 3"
    expect 'exit status 3' is "$status" 3
    expect 'nothing runs' waits_for is_gone "$left"
}

command_endedBySignal_leavesNothing() {
    local signal left pid mounts
    mounts=$(wc -l </proc/self/mountinfo)
    for signal in INT TERM HUP KILL; do
        left=$(unique_sleep)
        env --default-signal=INT ./dev shell bash -c "setsid $left & $left" >"$work/output" 2>&1 &
        pid=$!
        expect "$signal: the command starts" waits_for runs "^$left"
        kill -s "$signal" "$pid"
        expect "$signal: it ends" ends "$pid"
        expect "$signal: the exit status tells of a failure" test "$status" -ne 0
        expect "$signal: nothing runs" waits_for is_gone "^$left"
    done
    expect 'nothing is mounted' is "$(wc -l </proc/self/mountinfo)" "$mounts"
}

command_endedByCtrlC_leavesNothing() {
    local left
    left=$(unique_sleep)
    {
        waits_for runs "^$left"
        printf '\003'
        sleep 1 # the terminal must not vanish first: that would end the command, too
    } | script -qec "./dev shell bash -c 'setsid $left & $left'" /dev/null >"$work/output" 2>&1
    expect 'nothing runs' waits_for is_gone "^$left"
}

build_whileAnotherOneBuilds_waitsForIt() {
    mkdir -p build
    exec {lock}>build/.debug.lock
    flock -n "$lock" || : # a real build holds it, which serves as well
    ./dev build debug >"$work/output" 2>&1 {lock}>&- &
    local pid=$! signal=TERM
    expect 'says that it waits' waits_for matches '^Waiting for another build of debug'
    kill "$pid"
    expect 'it ends' ends "$pid"
    exec {lock}>&-
}

build_ofUnknownPreset_isAUsageError() {
    dev build frobnicate
    expect 'exit status 2' is "$status" 2
    expect 'names it' matches frobnicate
}

if (($#)); then
    tests=("$@")
else
    mapfile -t tests < <(sed -n 's/^\([A-Za-z]*_[A-Za-z_0-9]*\)() {$/\1/p' "${BASH_SOURCE[0]}" |
        grep -E '^(help|unknownCommand|setUp|shell|command|build)_')
fi
for test in "${tests[@]}"; do
    printf '%s\n' "$test"
    : >"$work/output"
    "$test"
    rm -rf "$work/bin" "$work/cache"
done
if ((failures)); then
    printf '\n%d expectations failed\n' "$failures"
    exit 1
fi
printf '\n%d tests of ./dev passed\n' "${#tests[@]}"
