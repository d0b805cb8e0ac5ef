#!/usr/bin/env bash
# The installed tavutil against coreutils, xxd and its error paths; rows: status % command % output.
set -uo pipefail
d=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$d"' EXIT
cmake --install "$1" --prefix "$d/prefix" >/dev/null || exit 1
t=$d/prefix/bin/tavutil

mkdir "$d/dir" "$d/in"
touch "$d/in/empty" "$d/dir/b" "$d/dir/A" "$d/dir/.h" "$d/dir/c D" "$d/dir/B1"
printf x >"$d/in/one"
head -c 3145728 /dev/urandom >"$d/in/big"
"$t" claim "$d/p.pid" sleep 30 &
claimer=$!
for _ in 1 2 3 4 5 6 7 8 9 10; do [ -s "$d/p.pid" ] && [ "$(cat /proc/$claimer/comm)" = sleep ] && break; sleep 0.2; done

while IFS='%' read -r want cmd out; do
  got="$(eval "$cmd" 2>&1 </dev/null) $?"
  [ "$got" = "$out $want" ] || { echo "FAIL: $cmd: got '$got'" >&2; failures=$((${failures:-0} + 1)); }
done <<ROWS
0%readelf -d $t | grep -c 'NEEDED.*\[libtavutil\.so\]'%1
0%for p in $d/in/*; do $t base64 \$p && cat \$p | $t base64 && base64 \$p | $t base64 -d || exit; done | md5sum%$(for p in $d/in/*; do base64 $p; base64 $p; cat $p; done | md5sum)
0%for p in $d/in/*; do $t hex \$p && cat \$p | $t hex && xxd -p \$p | $t hex -d || exit; done | md5sum%$(for p in $d/in/*; do xxd -p $p; xxd -p $p; cat $p; done | md5sum)
0%for p in $d/in/*; do $t lines \$p && $t lines <\$p || exit; done | tr '\n' ,%$(for p in $d/in/*; do wc -l $p; wc -l <$p; done | tr '\n' ,)
0%env -u LD_LIBRARY_PATH $t help | head -c 6%usage:
0%$t pidof lee | tr ' ' '\n' | grep -x $claimer%$claimer
0%$t now | grep -cE '^[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} $(date +%Y)$'%1
0%for c in base64 hex hexdump hash random lines pidof procstat claim run ls now human help; do $t \$c --help | grep -c "^usage: tavutil \$c"; done | xargs%1 1 1 1 1 1 1 1 1 1 1 1 1 1
0%$t lines - $d/in/one <$d/in/big | tr '\n' ,%$(wc -l - "$d/in/one" <"$d/in/big" | tr '\n' ,)
0%printf abc >$d/abc; printf abcdefghi | $t hash $d/abc - | tr '\n' ,%5f39fb8f324f2e25  $d/abc,14c34d22ea476743  -,
0%$t random -s 1 13 | xxd -p%380651baa99754b80491470ba5
0%$t random --seed 1 70000 | xxd -p | tr -d '\n' | cut -c 131061-131086%$("$t" random -s 1 65543 | tail -c 13 | xxd -p)
0%printf ABCDEFGHIJKLMNOPQRST | $t hexdump | tr '\n' ,%41 42 43 44 45 46 47 48 - 49 4A 4B 4C 4D 4E 4F 50 : ABCDEFGHIJKLMNOP,51 52 53 54 : QRST,
0%$t ls $d/dir | tr '\n' ,%$(ls -A "$d/dir" | LC_ALL=C sort -f | tr '\n' ,)
0%echo \$($t human 90) \$($t human 1) \$($t human 86400)%2 minutes 1 second 1 day
0%$t procstat $claimer | cut -d' ' -f2 | xargs%$(cut -d' ' -f1-42 /proc/$claimer/stat | tr -d '()')
1%$t claim $d/p.pid sleep 30 2>&1 | cat - $d/p.pid | tr '\n' ,%tavutil claim: $d/p.pid is held by running instance $claimer,$claimer,$claimer
7%$t run sh -c 'exit 7'%
143%$t run sh -c 'kill -TERM \$\$'%
0%$t run -t 5 true%
1%$t run -t 1 sleep 10%tavutil run: sleep: killed after 1 second(s)
2%$t%usage: tavutil COMMAND [ARG...]; tavutil help lists the commands
2%$t bogus%tavutil: unknown command 'bogus'; tavutil help lists the commands
2%$t help nope%tavutil help: unknown command: nope (usage: tavutil help [COMMAND])
2%$t base64 -q%tavutil base64: unknown option -q (usage: tavutil base64 [-d] [FILE])
2%$t base64 a b%tavutil base64: too many arguments (usage: tavutil base64 [-d] [FILE])
1%$t base64 $d/none%tavutil base64: $d/none: No such file or directory (status 6)
1%$t hex -d $d/in/big%tavutil hex: $d/in/big: not hex text (status 7)
1%$t hex $d%tavutil hex: $d: Is a directory (status 6)
1%$t hash $d/in/empty%tavutil hash: $d/in/empty: empty input has no hash (status 7)
2%$t random%tavutil random: missing argument (usage: tavutil random [-s SEED] COUNT)
2%$t random x%tavutil random: not a byte count: x (usage: tavutil random [-s SEED] COUNT)
2%$t random -s x 1%tavutil random: not a seed: x (usage: tavutil random [-s SEED] COUNT)
2%$t random 1 -s%tavutil random: missing value for -s (usage: tavutil random [-s SEED] COUNT)
1%$t lines $d/none%tavutil lines: $d/none: No such file or directory (status 6)
1%$t pidof -x lee%
2%$t procstat x%tavutil procstat: not a process id: x (usage: tavutil procstat [PID])
1%$t procstat 2147483647%tavutil procstat: 2147483647: open failed (status 32)
1%$t claim $d/no/p.pid sleep%tavutil claim: Cannot access pid file $d/no/p.pid  Reason: No such file or directory (status 6)
1%$t claim $d/c.pid $d/none%tavutil claim: $d/none: No such file or directory (status 6)
2%$t run -t x true%tavutil run: bad value for -t: x (status 7)
2%$t run -t -1 true%tavutil run: the time limit must be 0 or more (usage: tavutil run [-t SECONDS] PROGRAM [ARG...])
127%$t run $d/none%tavutil run: $d/none: No such file or directory
1%$t ls $d/none%tavutil ls: Failed to scan directory $d/none  Reason: No such file or directory (status 6)
2%$t human 1e999%tavutil human: not a number of seconds: 1e999 (usage: tavutil human SECONDS)
ROWS
exit $((${failures:-0} != 0))
