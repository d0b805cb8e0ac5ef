#!/usr/bin/env bash
# Installs the build into a scratch prefix and runs the installed tavutil
# against coreutils and xxd on the same inputs, then every error path.
set -uo pipefail
build=$1
scratch=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null || exit 1
t=$prefix/bin/tavutil
failures=0
bad() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
same() { cmp -s "$1" "$2" || bad "$3"; }
eq() { [ "$1" = "$2" ] || bad "$3: got '$1', want '$2'"; }

readelf -d "$t" | grep -q 'NEEDED.*\[libtavutil\.so\]' || bad "installed tool does not need libtavutil.so"
env -u LD_LIBRARY_PATH "$t" help >/dev/null || bad "installed tool does not run from its prefix"

d=$scratch/data
mkdir "$d"
: >"$d/empty"
printf 'x' >"$d/one"
head -c 3145728 /dev/urandom >"$d/big"
for f in empty one big; do
  p=$d/$f
  "$t" base64 "$p" >"$d/out" && same "$d/out" <(base64 "$p") "base64 $f"
  base64 "$p" | "$t" base64 -d >"$d/out" && same "$d/out" "$p" "base64 -d $f"
  cat "$p" | "$t" base64 >"$d/out" && same "$d/out" <(base64 "$p") "base64 of a pipe, $f"
  "$t" hex "$p" >"$d/out" && same "$d/out" <(xxd -p "$p") "hex $f"
  xxd -p "$p" | "$t" hex -d >"$d/out" && same "$d/out" "$p" "hex -d $f"
  eq "$("$t" lines "$p")" "$(wc -l "$p")" "lines $f"
  eq "$("$t" lines <"$p")" "$(wc -l <"$p")" "lines <$f"
done
eq "$("$t" lines "$d/big" "$d/one" "$d/empty")" "$(wc -l "$d/big" "$d/one" "$d/empty")" "lines of three"
eq "$("$t" lines - "$d/one" <"$d/big")" "$(wc -l - "$d/one" <"$d/big")" "lines of - and one"

printf abc >"$d/abc"
printf abcdefghi >"$d/abc9"
eq "$("$t" hash "$d/abc" - <"$d/abc9")" "5f39fb8f324f2e25  $d/abc
14c34d22ea476743  -" "hash"
eq "$("$t" random -s 1 13 | xxd -p)" "380651baa99754b80491470ba5" "random -s 1"
eq "$("$t" random --seed 1 70000 | tail -c +65531 | head -c 13 | xxd -p)" \
   "$("$t" random -s 1 65543 | tail -c 13 | xxd -p)" "random across chunks"
eq "$(printf ABCDEFGHIJKLMNOPQRST | "$t" hexdump)" "41 42 43 44 45 46 47 48 - 49 4A 4B 4C 4D 4E 4F 50 : ABCDEFGHIJKLMNOP
51 52 53 54 : QRST" "hexdump"

mkdir "$d/dir"
touch "$d/dir/b" "$d/dir/A" "$d/dir/.h" "$d/dir/c D" "$d/dir/B1"
eq "$("$t" ls "$d/dir")" "$(ls -A "$d/dir" | LC_ALL=C sort -f)" "ls"

eq "$("$t" human 90) $("$t" human 1) $("$t" human 86400)" "2 minutes 1 second 1 day" "human"
[[ $("$t" now) =~ ^[A-Z][a-z]{2}\ [A-Z][a-z]{2}\ [\ 0-9][0-9]\ [0-9:]{8}\ $(date +%Y)$ ]] || bad "now"

sleep 30 &
sleeper=$!
[[ " $("$t" pidof -x sleep) " == *" $sleeper "* ]] || bad "pidof -x sleep"
[[ " $("$t" pidof lee) " == *" $sleeper "* ]] || bad "pidof lee"
eq "$("$t" procstat "$sleeper" | cut -d' ' -f2 | tr '\n' ' ')" "$(cut -d' ' -f1-42 /proc/$sleeper/stat | tr -d '()') " "procstat"

"$t" claim "$d/p.pid" sleep 30 &
claimer=$!
for _ in 1 2 3 4 5 6 7 8 9 10; do [ -s "$d/p.pid" ] && [ "$(cat /proc/$claimer/comm)" = sleep ] && break; sleep 0.2; done
holder=$("$t" claim "$d/p.pid" sleep 30 2>"$d/err")
eq "$? $holder $(cat "$d/p.pid")" "1 $claimer $claimer" "second claim"
eq "$(cat "$d/err")" "tavutil claim: $d/p.pid is held by running instance $claimer" "second claim's line"

echo | "$t" lines 2>"$d/err"; eq "$? $(cat "$d/err")" "1 tavutil lines: -: Illegal seek (status 6)" "lines of a pipe"
"$t" run sh -c 'exit 7'; eq "$?" 7 "run's exit code"
"$t" run sh -c 'kill -TERM $$'; eq "$?" 143 "run's signal"
"$t" run -t 5 true; eq "$?" 0 "run within its limit"
"$t" run -t 1 sleep 10 2>"$d/err"; eq "$? $(cat "$d/err")" "1 tavutil run: sleep: killed after 1 second(s)" "run -t 1"

# args | exit status | standard error
while IFS='|' read -r args want err; do
  eval "set -- $args"
  "$t" "$@" >/dev/null 2>"$d/err" </dev/null
  eq "$? $(cat "$d/err")" "$want $err" "tavutil $args"
done <<ROWS
|2|usage: tavutil COMMAND [ARG...]; tavutil help lists the commands
bogus|2|tavutil: unknown command 'bogus'; tavutil help lists the commands
help nope|2|tavutil help: unknown command: nope (usage: tavutil help [COMMAND])
base64 -q|2|tavutil base64: unknown option -q (usage: tavutil base64 [-d] [FILE])
base64 a b|2|tavutil base64: too many arguments (usage: tavutil base64 [-d] [FILE])
base64 $d/none|1|tavutil base64: $d/none: No such file or directory (status 6)
hex -d $d/big|1|tavutil hex: $d/big: not hex text (status 7)
hex $d|1|tavutil hex: $d: Is a directory (status 6)
hexdump $d/none|1|tavutil hexdump: $d/none: No such file or directory (status 6)
hash $d/empty|1|tavutil hash: $d/empty: empty input has no hash (status 7)
random|2|tavutil random: missing argument (usage: tavutil random [-s SEED] COUNT)
random x|2|tavutil random: not a byte count: x (usage: tavutil random [-s SEED] COUNT)
random -s x 1|2|tavutil random: not a seed: x (usage: tavutil random [-s SEED] COUNT)
random -s 1 -s 2 3|2|tavutil random: bad value for -s: 2 (status 7)
random 1 -s|2|tavutil random: missing value for -s (usage: tavutil random [-s SEED] COUNT)
lines $d/none|1|tavutil lines: $d/none: No such file or directory (status 6)
lines $d/dir|1|tavutil lines: $d/dir: Is a directory (status 6)
pidof no-such-process-name|1|
procstat x|2|tavutil procstat: not a process id: x (usage: tavutil procstat [PID])
procstat 2147483647|1|tavutil procstat: 2147483647: open failed (status 32)
claim $d/no/p.pid sleep|1|tavutil claim: Cannot access pid file $d/no/p.pid  Reason: No such file or directory (status 6)
claim $d/c.pid $d/none|1|tavutil claim: $d/none: No such file or directory (status 6)
run|2|tavutil run: missing argument (usage: tavutil run [-t SECONDS] PROGRAM [ARG...])
run -t x true|2|tavutil run: bad value for -t: x (status 7)
run -t -1 true|2|tavutil run: the time limit must be 0 or more (usage: tavutil run [-t SECONDS] PROGRAM [ARG...])
run $d/none|127|tavutil run: $d/none: No such file or directory
ls $d/none|1|tavutil ls: Failed to scan directory $d/none  Reason: No such file or directory (status 6)
now x|2|tavutil now: too many arguments (usage: tavutil now )
human 1e999|2|tavutil human: not a number of seconds: 1e999 (usage: tavutil human SECONDS)
ROWS
for c in base64 hex hexdump hash random lines pidof procstat claim run ls now human help; do
  "$t" "$c" --help | grep -q "^usage: tavutil $c" || bad "$c --help"
done
[ "$failures" = 0 ] && echo "cli: every comparison and error path as expected"
exit $((failures != 0))
