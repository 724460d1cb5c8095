#!/bin/sh
# Installs a build into a folder of its own, moves that folder, and uses it with nothing of the source tree in reach: the
# command as it stands; a C, a C++ and a Fortran program built through the CMake package, pkg-config and the compiler alone.
# Then makes the Debian packages and looks at what is in them.
#   run.sh BUILD_FOLDER
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }

quietly cmake --install "$build" --prefix "$work/first"
mv "$work/first" "$work/prefix"
lib=$(dirname "$(find "$work/prefix" -name libzel.so)")
"$work/prefix/bin/zel" --version
test -f "$work/prefix/share/man/man1/zel.1"
test -f "$work/prefix/share/man/man3/zel.3"
grep -q "BSD 3-Clause" "$work/prefix/share/doc/zel/copyright"

quietly cmake -S "$here" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix"
quietly cmake --build "$work/cmake"
"$work/cmake/user_c"
"$work/cmake/user_cpp"

# Programs that read files of strangers: bound at start, tables read-only, no code on the stack, guarded buffers; and a bill of
# materials that names every library they load.
for program in "$lib/libzel.so" "$work/prefix/bin/zel"; do
  readelf -W -d -l -h --dyn-syms "$program" >"$work/elf"
  for expected in 'BIND_NOW|Flags:.*NOW' 'GNU_RELRO' 'Type: +DYN' 'GNU_STACK.* RW ' '__stack_chk_fail' '__[a-z]+_chk'; do
    grep -Eq "$expected" "$work/elf" || { echo "$program lacks $expected"; exit 1; }
  done
  if readelf -W -l "$program" | grep -E 'LOAD.* RWE '; then
    echo "$program has code that can be written"
    exit 1
  fi
done
readelf -d "$lib/libzel.so" "$work/prefix/bin/zel" | python3 "$here/bill.py" "$work/prefix/share/doc/zel/zel.spdx.json"

export PKG_CONFIG_PATH="$lib/pkgconfig" LD_LIBRARY_PATH="$lib"
cc "$here/user.c" $(pkg-config --cflags --libs zel) -o "$work/user_pc"
"$work/user_pc"

cd "$work"
gfortran prefix/include/zel.f90 "$here/user.f90" -L"$lib" -lzel -o user_fortran
./user_fortran

quietly cpack --config "$build/CPackConfig.cmake" -B "$work/packages"
mkdir root
for package in libzel0 libzel-dev zel; do
  dpkg-deb -x packages/${package}_*.deb root
done
LD_LIBRARY_PATH=$(dirname "$(find root -name 'libzel.so.0')") root/usr/bin/zel --version
if readelf -S root/usr/bin/zel | grep -q '\.symtab'; then
  echo "the packaged command is not stripped"
  exit 1
fi
