#!/usr/bin/env bash
# Checks libtavutil.so as a user's loader and linker see it: exactly the
# three NEEDED entries, the installed run path, exactly the exported
# operations of the symbol map, and no import beyond libc and exactly the
# three entry points of the sibling libraries.
set -euo pipefail
export LC_ALL=C
so=$1
map=$2
fail=0
complain() { echo "ABI: $*" >&2; fail=1; }

# In the order the loader searches them: the two siblings, then libc.
needed=$(readelf -d "$so" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
[ "$needed" = "libtavlog.so libtaverrortrace.so libc.so.6 " ] || complain "NEEDED is '$needed'"

runpath=$(readelf -d "$so" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')
[ "$runpath" = "/usr/local/lib" ] || complain "RUNPATH is '$runpath'"
! readelf -d "$so" | grep -q '(RPATH)' || complain "has an RPATH besides its RUNPATH"

# The map lists one exported symbol per line as "name;" between global: and local:.
expected=$(sed -n '/global:/,/local:/p' "$map" | sed -n 's/^[[:space:]]*\([A-Za-z_0-9]*\);.*/\1/p' | sort)
exported=$(nm -D --defined-only "$so" | awk '{print $3}' | sort)
if [ "$expected" != "$exported" ]; then
  complain "exports differ from the map:"
  diff <(echo "$expected") <(echo "$exported") >&2 || true
fi

for hidden in tav_util_query_timeout_expired tav_util_await_child_timeout tav_util_pid_of \
              tav_util_proc_stat; do
  ! grep -qx "$hidden" <<<"$exported" || complain "$hidden must not be exported"
done

# Imports: exactly the three entry points come from the siblings, and no
# C++ runtime or unwinder symbol may be needed at all.
imports=$(nm -D --undefined-only "$so" | awk '{print $2}' | sed 's/@.*//')
cxx=$(grep -E '^(_Z|__cxa|__gxx|_Unwind)' <<<"$imports" || true)
[ -z "$cxx" ] || complain "needs the C++ runtime: $(echo $cxx)"
tav=$(grep -E '^tav' <<<"$imports" | sort | tr '\n' ' ')
[ "$tav" = "tav_trace_save tav_util_log_internal tav_util_log_internal_perror " ] ||
  complain "imports '$tav' from the siblings"
glibc_only=$(nm -D --undefined-only "$so" | awk '{print $2}' | grep '@' | grep -v '@GLIBC_' || true)
[ -z "$glibc_only" ] || complain "versioned imports from outside libc: $(echo $glibc_only)"

[ $fail -eq 0 ] && echo "ABI of $so: as promised"
exit $fail
