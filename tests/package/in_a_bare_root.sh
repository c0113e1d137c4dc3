#!/usr/bin/env bash
# Installs the packages of build/package in a bare Debian root, uses them there, takes a newer version
# of them, and removes them: nothing is left. By hand, as root, after scripts/package; needs
# debootstrap, which it installs.
#
#   tests/package/in_a_bare_root.sh [DIRECTORY]   a root from an earlier run is used again
set -euo pipefail
cd "$(dirname "$0")/../.."
root=${1:-build/bare_root}
scripts/install-deps debootstrap dpkg-dev

[ -e "$root/usr/bin/dpkg" ] || debootstrap --variant=minbase bookworm "$root" >/dev/null
root=$(realpath "$root")
inside() { env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive chroot "$root" "$@"; }
apt() { inside apt-get -qq -o Dpkg::Use-Pty=0 "$@" >"$root/apt.log" 2>&1 || { cat "$root/apt.log" >&2; exit 1; }; }
files() { (cd "$root" && find usr/bin usr/lib usr/include usr/share etc -name '*tuk*mem*' | sort); }
mount --bind /proc "$root/proc"
trap 'umount "$root/proc"' EXIT
cp /etc/resolv.conf "$root/etc/"
mkdir -p "$root/packages" && rm -f "$root"/packages/*
cp build/package/*.deb "$root/packages/"

# A newer version: the same files under another number.
version=$(dpkg-deb -f build/package/tuk-mem_*.deb Version)
newer=${version%-*}+1-1
for package in build/package/*.deb; do
  rm -rf "$root/unpacked"
  dpkg-deb -R "$package" "$root/unpacked"
  sed -i "s/^Version: .*/Version: $newer/; s/(= $version)/(= $newer)/" "$root/unpacked/DEBIAN/control"
  dpkg-deb --root-owner-group -b "$root/unpacked" "$root/packages/newer_$(basename "$package")" >/dev/null
done

# The packages that a program to be profiled and a host come from are there before and after.
apt update
apt install --no-install-recommends sqlite3 gcc libc6-dev man-db
before=$(files)

use() { # what the version must be
  [ "$(inside dpkg-query -W -f '${Version}' tuk-mem)" = "$1" ]
  rm -rf "$root/run"
  [ "$(inside tuk-mem run -o /run_of_it -- sqlite3 :memory: 'select 6 * 7' 2>"$root/summary")" = 42 ]
  grep -q 'allocations' "$root/summary"
  inside tuk-mem show /run_of_it --by module --csv | grep -q sqlite3
  inside tuk-mem html /run_of_it -o /page.html
  rm -rf "$root/run_of_it" "$root/page.html"
  inside man -P cat libtuk_mem | grep -q KORVANE_MEM_PROFILE_PER_FILELINE
  inside man -P cat tuk-mem | grep -q -- --max-growth
  inside man -P cat tuk-mem-symbols | grep -q -- --remove-directory
  printf '#include <tuk_mem_c.h>\nint main(void) { return tuk_mem_allocator_is_hooked(); }\n' >"$root/host.c"
  inside gcc /host.c -o /host -ltuk_mem
  inside /host
}
install_packages() { # the beginning of their names
  local packages=("$root"/packages/$1*.deb)
  apt install --no-install-recommends "${packages[@]#"$root"}"
}
install_packages '[lt]'
use "$version"
install_packages newer_
use "$newer"
apt purge libtuk-mem1 libtuk-mem-dev tuk-mem
[ "$(files)" = "$before" ] || { diff <(echo "$before") <(files); exit 1; }
echo "installed, used, upgraded to $newer and removed in $root"
