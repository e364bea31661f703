# SPDX-License-Identifier: MIT
# What the scripts share. Sourced by them, from any folder; needs bash.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
jobs=$(nproc)

say() { printf '==> %s\n' "$*"; }
die() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# What a package is there for: a command, or a file (a pattern will do).
probe_of() {
    case $1 in
    ninja-build) echo ninja ;;
    clang) echo clang++ ;;
    llvm) echo llvm-symbolizer ;;
    libclang-rt-14-dev) echo '/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a' ;;
    libgtest-dev) echo '/usr/*include/gtest/gtest.h /usr/local/include/gtest/gtest.h' ;;
    libbenchmark-dev) echo '/usr/include/benchmark/benchmark.h /usr/local/include/benchmark/benchmark.h' ;;
    dpkg-dev) echo dpkg-buildflags ;;
    abigail-tools) echo abidw ;;
    g++-12-multilib) echo /usr/lib/gcc/x86_64-linux-gnu/12/32/libstdc++.a ;;
    g++-s390x-linux-gnu) echo s390x-linux-gnu-g++ ;;
    qemu-user-static) echo qemu-s390x-static ;;
    googletest) echo /usr/src/googletest/googletest/src/gtest-all.cc ;;
    libapr1-dev) echo /usr/include/apr-1.0/apr.h ;;
    libboost-all-dev) echo /usr/include/boost/process.hpp ;;
    libcereal-dev) echo /usr/include/cereal/cereal.hpp ;;
    libglib2.0-dev) echo /usr/include/glib-2.0/gio/gio.h ;;
    libpoco-dev) echo /usr/include/Poco/Net/StreamSocket.h ;;
    python3-matplotlib) echo /usr/lib/python3/dist-packages/matplotlib/__init__.py ;;
    locales) echo /usr/share/i18n/locales/en_US ;;
    *) echo "$1" ;;
    esac
}

present() {
    local probe
    for probe in $(set -f; probe_of "$1"); do
        case $probe in
        /*) compgen -G "$probe" >/dev/null && return ;;
        *) command -v "$probe" >/dev/null && return ;;
        esac
    done
    return 1
}

# install_missing PACKAGE...: sees to it that what the packages give is there. Sets `installed`.
installed=no
install_missing() {
    local package missing=() as_root=()
    for package in "$@"; do
        present "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    command -v apt-get >/dev/null ||
        die "some programs are missing, and there is no apt-get. Debian's packages of them: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null ||
            die "some packages are missing, and there is no sudo. Please have root call this, and run it again:
    apt-get install --no-install-recommends ${missing[*]}"
        as_root=(sudo)
    fi
    mkdir -p build
    say "installing ${missing[*]} (build/install.log)"
    logged build/install.log "${as_root[@]}" apt-get -q -o DPkg::Lock::Timeout=300 update
    logged build/install.log "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y -o DPkg::Lock::Timeout=300 install --no-install-recommends "${missing[@]}"
    installed=yes
}

# logged LOG COMMAND...: output goes to the log; its last lines are shown if the command fails.
logged() {
    local log=$1
    shift
    "$@" </dev/null >"$log" 2>&1 || { tail -n 30 "$log" >&2; die "failed: $* (all of it: $log)"; }
}

# progress: tells how far a ninja or ctest run is ("[3/40] ...", " 3/40 Test ..."). On a terminal
# that is one line that changes, elsewhere one plain line for each quarter (CONTRIBUTING.md, "What is
# shown").
progress() {
    local line at all quarter shown=0
    while IFS= read -r line; do
        [[ $line =~ ^\ *\[?([0-9]+)/([0-9]+)(\]|\ Test) ]] || continue
        at=${BASH_REMATCH[1]} all=${BASH_REMATCH[2]} quarter=$((4 * at / all))
        if [ -t 1 ]; then
            printf '\r    %s of %s' "$at" "$all"
            [ "$at" -lt "$all" ] || printf '\n'
        elif [ "$quarter" -gt "$shown" ]; then
            printf '    %s of %s\n' "$at" "$all"
            shown=$quarter
        fi
    done
}

# configure PRESET: once, and again when the presets or the installed packages have changed. What
# changes in the tree, ninja sees by itself.
configure() {
    local folder=build/$1
    if [ $installed = no ] && cmp -s CMakePresets.json "$folder/presets.used"; then
        return
    fi
    mkdir -p "$folder"
    say "configuring $1 ($folder/configure.log)"
    logged "$folder/configure.log" cmake --preset "$1"
    cp CMakePresets.json "$folder/presets.used"
}

# build PRESET [TARGET...]
build() {
    local preset=$1 log=build/$1/build.log
    shift
    say "building $preset ($log)"
    ninja -C "build/$preset" -j "$jobs" "$@" </dev/null 2>&1 | tee "$log" | progress || {
        grep -v '^\[' "$log" | tail -n 40 >&2
        die "the build failed (all of it: $log)"
    }
}
