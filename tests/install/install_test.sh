#!/bin/bash
# install_test.sh BUILD SOURCE COMPILER: installs a build and builds the example host from what is installed, with CMake
# and with pkg-config. Both hosts must get their frames.
set -euo pipefail
build=$1 source=$2 compiler=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/usr" >/dev/null
[[ ! -e $work/usr/include/gevapi.h ]] || { echo "gevapi.h would shadow a framework's own"; exit 1; }

cmake -S "$source/examples/host" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/usr" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/build" >/dev/null

package=$(dirname "$(find "$work/usr" -name driver-dalsa.pc)")
config() { PKG_CONFIG_PATH=$package pkg-config "$@" driver-dalsa; }
# shellcheck disable=SC2046  # words are what is wanted
"$compiler" -DBUNDLE="\"$(config --variable=bundle)\"" -DCAMERAS="\"$(config --variable=cameras_sim)\"" \
  $(config --cflags) "$source/examples/host/main.cpp" -o "$work/by_pkg_config" $(config --libs) -ldl

for host in "$work/build/example_host" "$work/by_pkg_config"; do
  frames=$(LD_LIBRARY_PATH=$(config --variable=libdir) "$host" | grep -c '^frame .*640x480, exposure 5000 us, mean grey')
  [[ $frames == 10 ]] || { echo "$host got $frames frames of 10"; exit 1; }
done
"$work/usr/bin/mediagrabber" run -F sim "$source/examples/camera.toml" -n 2 -q
