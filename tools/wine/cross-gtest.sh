#!/bin/sh
# Builds GoogleTest for Windows from Debian's source package (googletest, in /usr/src/googletest)
# with the project's mingw-w64 toolchain, installs it under DIR and prints the folder to hand to
# CMake as GTest_DIR:
#   cmake ... -DGTest_DIR=$(tools/wine/cross-gtest.sh build-win/gtest)
# Does nothing but print the folder when DIR already holds the build.
set -eu

if [ $# -ne 1 ]; then
  echo "usage: $0 <install dir>" >&2
  exit 2
fi
root=$(cd "$(dirname "$0")/../.." && pwd)
install=$(mkdir -p "$1" && cd "$1" && pwd)
source=${PELMO_GTEST_SOURCE:-/usr/src/googletest}
config="$install/lib/cmake/GTest"

if [ ! -f "$config/GTestConfig.cmake" ]; then
  if [ ! -f "$source/CMakeLists.txt" ]; then
    echo "$0: no GoogleTest sources in $source (apt-get install googletest)" >&2
    exit 1
  fi
  build="$install/.build"
  cmake -S "$source" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DBUILD_GMOCK=OFF -DCMAKE_INSTALL_PREFIX="$install" >/dev/null
  cmake --build "$build" -j "${PELMO_JOBS:-2}" >/dev/null
  cmake --install "$build" >/dev/null
  rm -rf "$build"
fi
echo "$config"
