#!/bin/sh
# Installs the build to a fresh prefix, then builds a small outside program
# against it twice, through find_package(shadenet) and through pkg-config,
# and runs both. Usage: run.sh BUILD_DIR SOURCE_DIR
set -eu
build=$1
here=$2/tests/package
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
test -x "$prefix/bin/shadenet"
"$prefix/bin/shadenet" nodes >/dev/null

expected="2 shot.0007.exr"

cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
got=$("$work/cmake/consumer")
[ "$got" = "$expected" ] || { echo "find_package build printed '$got', not '$expected'"; exit 1; }

pc=$(find "$prefix" -name shadenet.pc)
flags=$(PKG_CONFIG_PATH=$(dirname "$pc") pkg-config --cflags --libs shadenet)
# shellcheck disable=SC2086
c++ "$here/consumer/main.cpp" -o "$work/pc-consumer" $flags
got=$("$work/pc-consumer")
[ "$got" = "$expected" ] || { echo "pkg-config build printed '$got', not '$expected'"; exit 1; }
echo "installed package: find_package and pkg-config builds run"
