#!/usr/bin/env bash
# Runs the whole test program under memcheck: no invalid access, no leak, no
# uninitialised read. The test program defines malloc itself (the allocation
# injector); memcheck is told to leave that definition in place and to watch
# the libc allocator underneath it instead, so injected failures still happen.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
exec valgrind --quiet --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite,indirect \
  --soname-synonyms=somalloc=nouserintercepts --suppressions="$here/valgrind.supp" \
  --child-silent-after-fork=yes "$@"
