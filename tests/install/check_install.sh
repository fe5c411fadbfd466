#!/bin/sh
# Installs the build tree into a fresh prefix and proves the installed tree
# stands on its own: a program found through find_package and one through
# pkg-config build and run against it, and the installed kestrel finds its
# plug-in and imports the bundled sample.
#   check_install.sh BUILD_DIR SOURCE_DIR WORK_DIR
set -eu
build=$1
source=$2
work=$3
rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >"$work/install.log"

cmake -S "$source/tests/install/consumer" -B "$work/consumer" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >"$work/configure.log"
cmake --build "$work/consumer" >"$work/build.log"
"$work/consumer/consumer" "$work/from-cmake.qdx"

pcdir=$(dirname "$(find "$prefix" -name qdxsdk.pc)")
# shellcheck disable=SC2046
c++ -o "$work/consumer-pc" "$source/tests/install/consumer/consumer.cpp" \
    -DPLUGIN_DIR="\"$(PKG_CONFIG_PATH=$pcdir pkg-config --variable=plugindir kestrel)\"" \
    $(PKG_CONFIG_PATH=$pcdir pkg-config --cflags --libs qdxsdk kestrel) \
    -Wl,-rpath,"$(PKG_CONFIG_PATH=$pcdir pkg-config --variable=libdir qdxsdk)"
"$work/consumer-pc" "$work/from-pkgconfig.qdx"

# The installed programs run from anywhere, with nothing from the build tree.
cd "$work"
env -u KESTREL_PLUGIN_PATH "$prefix/bin/kestrel" formats | grep -q qdx
env -u KESTREL_PLUGIN_PATH "$prefix/bin/kestrel" -q import "$source/samples/showroom.qdx" >/dev/null
# Drawing writes a PNG: the image module is found beside the installed library.
env -u KESTREL_PLUGIN_PATH "$prefix/bin/kestrel" -q render "$source/samples/showroom.qdx" \
    -o "$work/picture.png" --size 64x48
test -s "$work/picture.png"
"$prefix/bin/qdx" info "$work/from-cmake.qdx" >/dev/null
test -f "$prefix/share/bash-completion/completions/kestrel"
echo "installed tree usable"
