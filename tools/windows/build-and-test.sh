#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Cross-builds everything for Windows and runs the unit tests under Wine. Run by `./dev windows`.
#   build-and-test.sh [CTEST-ARGUMENT...]
set -euo pipefail

cd -P "$(dirname "${BASH_SOURCE[0]}")/../.."
project=$PWD
build=$project/build/windows

fail() {
    printf 'windows: %s\n' "$*" >&2
    exit 1
}

# unpack ARCHIVE - says where its content is; an archive is unpacked once
unpack() {
    local hash folder partial
    hash=$(sha256sum "$1" | cut -c 1-16)
    folder=$LUMIVORA_CACHE/windows-prefix-$hash
    if [[ ! -d $folder ]]; then
        partial=$(mktemp -d "$folder.XXXXXX")
        tar --zstd -xf "$1" -C "$partial" --strip-components=1 ||
            fail "Cannot unpack $1: replace it with an undamaged copy, or delete it to have the prefix built."
        mv -T "$partial" "$folder" 2>/dev/null || rm -rf "$partial" # another call was faster
    fi
    printf '%s\n' "$folder"
}

# Says where Qt and OpenCV for Windows are; builds them when they are nowhere.
find_prefix() {
    local archive=${project%/*}/shared/windows-prefix.tar.zst built
    built=$LUMIVORA_CACHE/windows-prefix-built-$(sha256sum tools/windows/build-prefix.sh | cut -c 1-16)
    if [[ -n ${LUMIVORA_WINDOWS_PREFIX:-} ]]; then
        [[ -d $LUMIVORA_WINDOWS_PREFIX/lib/cmake/Qt6 ]] ||
            fail "There is no Qt for Windows in LUMIVORA_WINDOWS_PREFIX=$LUMIVORA_WINDOWS_PREFIX: point it at the folder that holds bin, lib and plugins, or unset it."
        printf '%s\n' "$LUMIVORA_WINDOWS_PREFIX"
    elif [[ -e $archive ]]; then
        unpack "$archive"
    else
        [[ -d $built ]] || tools/windows/build-prefix.sh "$built" >&2
        printf '%s\n' "$built"
    fi
}

mkdir -p build
exec {lock}>build/.windows.lock
flock --nonblock "$lock" || {
    printf 'Waiting for another build of windows ...\n' >&2
    flock "$lock"
}

LUMIVORA_WINDOWS_PREFIX=$(find_prefix)
export LUMIVORA_WINDOWS_PREFIX
printf 'Qt and OpenCV for Windows: %s\n' "$LUMIVORA_WINDOWS_PREFIX"

# What was found in another prefix or environment is not looked up again by itself.
origin="${LUMIVORA_ENVIRONMENT:-} $LUMIVORA_WINDOWS_PREFIX"
if [[ ! -e $build/build.ninja || $(cat "$build/.origin" 2>/dev/null) != "$origin" ]]; then
    cmake --fresh --preset windows -DLUMIVORA_WINDOWS_PREFIX="$LUMIVORA_WINDOWS_PREFIX" \
        -DCMAKE_CROSSCOMPILING_EMULATOR=wine --log-level=WARNING
    printf '%s\n' "$origin" >"$build/.origin"
fi
ninja -C "$build"

export WINEPREFIX=$build/wine WINEDEBUG=-all
export WINEDLLOVERRIDES='mscoree,mshtml=' # no offer to download Mono and Gecko
export WINEPATH="Z:${LUMIVORA_WINDOWS_PREFIX//\//\\}\\bin" # the DLLs
export QT_PLUGIN_PATH="Z:${LUMIVORA_WINDOWS_PREFIX}/plugins"
export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-windows}
trap 'wineserver -k 2>/dev/null || true' EXIT
# One test at a time: the names of kernel objects are fixed, and shared by all programs of a prefix.
xvfb-run -a bash -c '
    wine wineboot --init >/dev/null 2>&1 && wineserver -w
    exec ctest --test-dir "$0" -L "^unit$" --output-on-failure --no-tests=error "$@"' "$build" "$@"
