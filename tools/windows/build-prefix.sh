#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Builds Qt, OpenCV and RNNoise for Windows from Debian's source packages. Run inside of the build
# environment, by `./dev windows` when it finds no ready copy. Takes about 35 minutes on two cores.
#   build-prefix.sh PREFIX
# PREFIX appears when it is complete. It is relocatable.
set -euo pipefail

(($# == 1)) || {
    echo 'usage: build-prefix.sh PREFIX' >&2
    exit 2
}
final=$(realpath -m "$1")

toolchain=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../../cmake/WindowsToolchain.cmake")
readonly compiler=x86_64-w64-mingw32-gcc-posix
readonly host_cmake=/usr/lib/x86_64-linux-gnu/cmake

mkdir -p "${final%/*}"
work=$(mktemp -d "$final.building.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
mkdir -p "$prefix"/{bin,include,lib} "$work"/{lists/partial,cache/archives/partial,sources}

free_kb=$(df --output=avail -k "$work" | tail -n 1)
((free_kb >= 8 * 1024 * 1024)) || {
    echo "Building for Windows needs 8 GB in ${final%/*}, which has $((free_kb / 1024)) MB: free some, or set LUMIVORA_CACHE to a folder on a larger disk." >&2
    exit 1
}

# apt with lists of its own: those of the system need no source entries, and root is not needed.
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
    [[ ! -f $file ]] || sed -e 's/^deb /deb-src /' -e 's/^Types:.*/Types: deb-src/' "$file" \
        >"$work/sources/${file##*/}"
done
apt=(-o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$work/sources"
    -o Dir::State::Lists="$work/lists" -o Dir::Cache="$work/cache" -o APT::Sandbox::User="$(id -un)" -qq)

say() { printf '\n== %s\n' "$*"; }

# get_source PACKAGE - unpacked and patched in $work/PACKAGE
get_source() {
    say "Source of $1"
    (
        cd "$work"
        apt-get "${apt[@]}" source --download-only "$1"
        # Downloads into a fresh folder hold one description.
        dpkg-source --no-check -x "$1"_*.dsc "$1" >/dev/null
        rm "$1"_*
    )
}

# build NAME SOURCE OPTION... - configures, builds and installs into the prefix
build() {
    local name=$1 source=$2
    shift 2
    say "$name: configure"
    cmake -S "$source" -B "$work/build-$name" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
        -DLUMIVORA_WINDOWS_PREFIX="$prefix" -DCMAKE_INSTALL_PREFIX="$prefix" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER_LAUNCHER=ccache \
        -DCMAKE_CXX_COMPILER_LAUNCHER=ccache "$@" >"$work/$name.log" 2>&1 || {
        tail -n 40 "$work/$name.log"
        return 1
    }
    say "$name: build"
    ninja -C "$work/build-$name"
    DESTDIR='' ninja -C "$work/build-$name" install >"$work/$name.log" 2>&1 || {
        tail -n 40 "$work/$name.log"
        return 1
    }
    rm -rf "$work/build-$name" "$source"
}

build_qtbase() {
    get_source qt6-base
    # Tablet support: its header is not in Debian's source. Everything else is what we do not use.
    local off=(tabletevent system_zlib system_png system_jpeg system_freetype system_harfbuzz
        system_pcre2 openssl opengl vulkan dbus sql printsupport icu pkg_config)
    off=("${off[@]/#/-DFEATURE_}")
    build qtbase "$work/qt6-base" -DFEATURE_schannel=ON -DINPUT_opengl=no -DQT_GENERATE_SBOM=OFF \
        -DQT_BUILD_TESTS=OFF -DQT_BUILD_EXAMPLES=OFF "${off[@]/%/=OFF}"
}

build_qtmultimedia() {
    get_source qt6-multimedia
    # Shaders are compiled by the host's tool; there is no shader library for Windows to be found.
    sed -i '/find_package(Qt6.*ShaderTools)/d' "$work/qt6-multimedia/src/multimedia/CMakeLists.txt"
    cat >"$work/shader-tools.cmake" <<EOF
find_package(Qt6 REQUIRED COMPONENTS Core)
find_package(Qt6ShaderToolsTools REQUIRED
    PATHS "$host_cmake" NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
EOF
    build qtmultimedia "$work/qt6-multimedia" -DCMAKE_PROJECT_INCLUDE="$work/shader-tools.cmake" \
        -DQT_GENERATE_SBOM=OFF -DQT_BUILD_TESTS=OFF -DQT_BUILD_EXAMPLES=OFF
}

build_opencv() {
    get_source opencv
    # Installed as a licence, but not in Debian's source.
    mkdir -p "$work/opencv/3rdparty/include/opencl"
    touch "$work/opencv/3rdparty/include/opencl/LICENSE.txt"
    local off=(PNG JPEG TIFF WEBP OPENEXR PROTOBUF FLATBUFFERS JASPER OPENJPEG GIF IMGCODEC_GIF
        DIRECTX FFMPEG GSTREAMER MSMF DSHOW OPENCL ADE QUIRC VTK EIGEN LAPACK ITT IPP)
    off=("${off[@]/#/-DWITH_}")
    build opencv "$work/opencv" -DBUILD_LIST=core,imgproc,dnn -DBUILD_ZLIB=OFF -DBUILD_TESTS=OFF \
        -DBUILD_PERF_TESTS=OFF -DBUILD_EXAMPLES=OFF -DBUILD_opencv_apps=OFF \
        -DOPENCV_CONFIG_INSTALL_PATH=lib/cmake/opencv4 -DOPENCV_LIB_INSTALL_PATH=lib \
        -DOPENCV_BIN_INSTALL_PATH=bin -DOPENCV_3P_LIB_INSTALL_PATH=lib \
        -DOPENCV_INCLUDE_INSTALL_PATH=include/opencv4 \
        "${off[@]/%/=OFF}"
}

build_rnnoise() {
    get_source obs-studio
    say 'rnnoise: build'
    local source=$work/obs-studio/plugins/obs-filters/rnnoise file
    mkdir -p "$work/rnnoise"
    for file in "$source"/src/*.c; do
        ccache "$compiler" -O2 -DCOMPILE_OPUS -I"$source/include" -c "$file" -o "$work/rnnoise/${file##*/}.o"
    done
    x86_64-w64-mingw32-ar rcs "$prefix/lib/librnnoise.a" "$work"/rnnoise/*.o
    cp "$source/include/rnnoise.h" "$prefix/include/"
    rm -rf "$work/obs-studio"
}

copy_run_time() {
    local name file
    for name in libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll zlib1.dll; do
        file=$("$compiler" -print-file-name="$name")
        [[ -e $file ]] || file=$(find /usr/x86_64-w64-mingw32 -name "$name" -print -quit)
        cp "$file" "$prefix/bin/"
    done
    find "$prefix" -name '*.dll' -exec x86_64-w64-mingw32-strip --strip-unneeded {} +
}

apt-get "${apt[@]}" update
build_qtbase
build_qtmultimedia
build_opencv
build_rnnoise
copy_run_time
mv -T "$prefix" "$final"
