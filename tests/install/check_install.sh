#!/usr/bin/env bash
# Installs the build into a scratch prefix (or takes PREFIX, where something
# else installed it) and builds a C99 caller against it twice: through
# find_package(tavutil) and through pkg-config.
# usage: check_install.sh BUILD [PREFIX]
set -euo pipefail
build=$1
source_dir=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=${2:-$scratch/prefix}

[ $# -gt 1 ] || cmake --install "$build" --prefix "$prefix" >/dev/null
for f in lib/libtavutil.so lib/libtavutil.a lib/libtavlog.so lib/libtaverrortrace.so \
         include/tavutil.h include/tavutil/status.h lib/pkgconfig/tavutil.pc \
         lib/cmake/tavutil/tavutilConfig.cmake; do
  [ -e "$prefix/$f" ] || { echo "not installed: $f" >&2; exit 1; }
done
# Installing must keep the run path the shared object was built with.
runpath=$(readelf -d "$prefix/lib/libtavutil.so" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')
[ "$runpath" = "/usr/local/lib" ] || { echo "installed RUNPATH is '$runpath'" >&2; exit 1; }

export LD_LIBRARY_PATH=$prefix/lib
cmake -S "$source_dir/consumer" -B "$scratch/cmake-build" -G Ninja \
      -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/cmake-build" >/dev/null
"$scratch/cmake-build/consumer" >/dev/null

# A strict C99 caller's option table, through the installed header.
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
# shellcheck disable=SC2046
cc -std=c99 -pedantic -Werror -o "$scratch/c99-options" "$source_dir/../abi/c99_options.c" \
   $(pkg-config --cflags --libs tavutil) -Wl,-rpath-link,"$prefix/lib"
"$scratch/c99-options" >/dev/null
echo "install: find_package and pkg-config consumers build and run"
