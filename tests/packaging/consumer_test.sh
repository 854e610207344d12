#!/bin/sh
# The installed package as an outside project meets it.
#   consumer_test.sh stage     BUILD STAGE           install BUILD into STAGE
#   consumer_test.sh cmake     SOURCE STAGE WORK     find_package against STAGE alone
#   consumer_test.sh pkgconfig SOURCE STAGE WORK     pkg-config against STAGE alone
set -eu
mode=$1
unset LD_LIBRARY_PATH CMAKE_PREFIX_PATH

case "$mode" in
stage)
    build=$2 stage=$3
    rm -rf "$stage"
    cmake --install "$build" --prefix "$stage" >/dev/null
    ;;
cmake)
    source=$2 stage=$3 work=$4
    rm -rf "$work" && mkdir -p "$work"
    cmake -S "$source/examples/consumer" -B "$work" -DCMAKE_PREFIX_PATH="$stage" \
        -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_BUILD_TYPE=Release >"$work/configure.log" 2>&1 \
        || { cat "$work/configure.log"; exit 1; }
    found=$(sed -n 's/^framehub_DIR:PATH=//p' "$work/CMakeCache.txt")
    case "$found" in
    "$stage"/*) ;;
    *) echo "found the package outside the staging prefix: $found"; exit 1 ;;
    esac
    cmake --build "$work" -j1 >"$work/build.log" 2>&1 || { cat "$work/build.log"; exit 1; }
    program="$work/framehub-consumer"
    ;;
pkgconfig)
    source=$2 stage=$3 work=$4
    rm -rf "$work" && mkdir -p "$work"
    export PKG_CONFIG_PATH="$stage/lib/pkgconfig"
    [ -d "$PKG_CONFIG_PATH" ] || PKG_CONFIG_PATH=$(dirname "$(find "$stage" -name framehub.pc | head -n 1)")
    libdir=$(pkg-config --variable=libdir framehub)
    # shellcheck disable=SC2046
    c++ -std=c++17 -O1 "$source/examples/consumer/main.cpp" -o "$work/framehub-consumer" \
        $(pkg-config --cflags --libs framehub) -Wl,-rpath,"$libdir"
    program="$work/framehub-consumer"
    ;;
*)
    echo "unknown mode $mode"; exit 2 ;;
esac

if [ "$mode" != stage ]; then
    # The program must load the staged library, not one from the system.
    ldd "$program" | grep 'libframehub' | grep -q "$stage" \
        || { echo "libframehub not taken from $stage:"; ldd "$program"; exit 1; }
    "$program"
fi
