# Read by run, test and dev at the top: gives them the toolchain and the build folder.
#
# After `enter_toolchain "$@"` the script runs where Qt is: on the host if that has what it takes, else, started
# anew with the same arguments, inside the root that root.sh makes. VESK_TOOLCHAIN then names which of them.
set -euo pipefail
checkout=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
build=$checkout/build

# Sets `native` to a name for the host's own toolchain; fails when it will not do.
find_native() {
    local qmake version libs module
    qmake=$(command -v qmake6 || command -v qtpaths6) || return 1
    version=$("$qmake" -query QT_VERSION) && libs=$("$qmake" -query QT_INSTALL_LIBS) || return 1
    [ "$(printf '%s\n' 6.8 "$version" | sort -V | head -n 1)" = 6.8 ] || return 1
    for module in Core DBus Gui Sql Network Qml Quick QuickControls2 Test; do
        [ -e "$libs/cmake/Qt6$module/Qt6${module}Config.cmake" ] || return 1
    done
    pkg-config --exists libsecret-1 2>/dev/null || return 1
    command -v cmake >/dev/null && command -v ninja >/dev/null && command -v "${CXX:-c++}" >/dev/null || return 1
    "${CXX:-c++}" -std=c++20 -x c++ -fsyntax-only - <<<'#include <version>
#if !defined(__cpp_lib_ranges) || !defined(__cpp_concepts)
#error
#endif' 2>/dev/null || return 1
    native="host Qt $version $("${CXX:-c++}" --version | head -n 1)"
}
enter_toolchain() {
    [ -z "${VESK_TOOLCHAIN:-}" ] || return 0
    if find_native; then
        export VESK_TOOLCHAIN=$native
    else
        exec "$checkout/packaging/toolchain/root.sh" run "$checkout/$(basename "$0")" "$@"
    fi
}

# One call builds at a time. A ninja that outlives a killed caller holds the lock on to its end.
lock_build() {
    mkdir -p "$build"
    exec {lock}>"$build/.lock"
    flock -n "$lock" || { echo "waiting for another build in $build" >&2; flock "$lock"; }
}
# Configures if that never came to its end, or was done for another toolchain, place or preset. What has changed
# since then in the CMake files is ninja's to see; that another toolchain made an object file is not.
configure() {
    local stamp=$build/.configured place
    place="$checkout $(cksum <"$checkout/CMakePresets.json")"
    [ "$(cat "$stamp" 2>/dev/null)" != "$VESK_TOOLCHAIN
$place" ] || [ ! -e "$build/build.ninja" ] || return 0
    if [ -e "$stamp" ] && [ "$(head -n 1 "$stamp")" != "$VESK_TOOLCHAIN" ]; then
        find "$build" -mindepth 1 -maxdepth 1 ! -name .lock ! -name .configured -exec rm -rf {} +
    fi
    rm -f "$stamp"
    (cd "$checkout" && cmake --fresh --preset release) >&2
    printf '%s\n%s\n' "$VESK_TOOLCHAIN" "$place" >"$stamp"
}
# Builds the given targets, all without one. Silent when there is nothing to do; else progress on standard error.
build() {
    lock_build
    configure
    if [ "$(ninja -C "$build" -n "$@" | tail -n 1)" != "ninja: no work to do." ]; then
        ninja -C "$build" "$@" >&2
    fi
    exec {lock}>&-
}
