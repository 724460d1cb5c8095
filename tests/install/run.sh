#!/bin/sh
# Installs a build into a folder of its own and builds a C, a C++ and a Fortran program against it, with nothing of the
# source tree in reach: through the CMake package, pkg-config and the compiler alone.
#   run.sh BUILD_FOLDER
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
lib=$(dirname "$(find "$work/prefix" -name libzel.so)")
export LD_LIBRARY_PATH="$lib" PKG_CONFIG_PATH="$lib/pkgconfig"

cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >"$work/log" 2>&1 &&
  cmake --build "$work/cmake" >>"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
"$work/cmake/user_c"
"$work/cmake/user_cpp"

cc "$here/user.c" $(pkg-config --define-prefix --cflags --libs zel) -o "$work/user_pc"
"$work/user_pc"

cd "$work"
gfortran prefix/include/zel.f90 "$here/user.f90" -L"$lib" -lzel -o user_fortran
./user_fortran
prefix/bin/zel --version
test -f prefix/share/man/man1/zel.1
