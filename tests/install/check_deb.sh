#!/usr/bin/env bash
# Makes the two Debian packages, checks what each holds and depends on,
# installs both into a scratch root with dpkg and builds the consumers
# against what they installed.
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/pkgs" >/dev/null
runtime=$(echo "$scratch"/pkgs/libtavutil_*.deb)
dev=$(echo "$scratch"/pkgs/libtavutil-dev_*.deb)
version=$(dpkg-deb -f "$runtime" Version)
expect() { [ "$1" = "$2" ] || { echo "$3: '$1', expected '$2'" >&2; exit 1; }; }
expect "$(dpkg-deb -f "$dev" Depends)" "libtavutil (= $version), pkg-config" "dev Depends"
dpkg-deb -f "$runtime" Depends | grep -Eq '^libc6 \(>= [0-9.]+\)$' || { echo "runtime Depends" >&2; exit 1; }
expect "$(dpkg-deb -c "$runtime" | awk '/\.so$/ {print $6}' | sort | tr '\n' ' ')" \
  "./usr/local/lib/libtaverrortrace.so ./usr/local/lib/libtavlog.so ./usr/local/lib/libtavutil.so " \
  "runtime files"
dpkg-deb -c "$dev" | grep -q '\.so$' && { echo "dev holds a shared object" >&2; exit 1; }
runtime_files=$(dpkg-deb -c "$runtime") dev_files=$(dpkg-deb -c "$dev")
grep -q ' ./usr/local/bin/tavutil$' <<<"$runtime_files" || { echo "runtime lacks the tool" >&2; exit 1; }
if [ -d "$build/docs/man/man3" ]; then
  grep -q ' ./usr/local/share/man/man3/tav_util_base64_encode.3$' <<<"$dev_files" ||
    { echo "dev lacks the man pages" >&2; exit 1; }
fi

root=$scratch/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status"
# libc6 and pkg-config are the host's, not the scratch root's.
dpkg --root="$root" --log=/dev/null --force-not-root --force-script-chrootless \
     --force-depends -i "$runtime" "$dev" >/dev/null 2>&1
expect "$(dpkg-query --admindir="$root/var/lib/dpkg" -W -f '${Package} ${Status}\n' | sort | tr '\n' ';')" \
  "libtavutil install ok installed;libtavutil-dev install ok installed;" "installed"
"$here/check_install.sh" "$build" "$root/usr/local" >/dev/null
echo "deb: both packages install, and consumers build and run against them"
