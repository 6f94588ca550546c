#!/usr/bin/env bash
# The Debian packages in a root directory of their own: installed, built against, upgraded, removed, purged.
# Usage: packages.sh BUILD_DIRECTORY SOURCE_DIRECTORY
set -euo pipefail
build=$1 top=$2
scratch=$(mktemp -d /tmp/zat_packages.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
chmod 755 "$scratch" # another user runs a till in it
root=$scratch/root site=$scratch/root/opt/zat_ms
export PATH=$PATH:/usr/sbin:/sbin LC_ALL=C.UTF-8 CMAKE_BUILD_PARALLEL_LEVEL=2
fail() { printf 'FAILED: %s\n' "$*" >&2; exit 1; }
as_root() { if ((EUID)); then fakeroot -- "$@"; else "$@"; fi; }

# ---- a root that knows this machine's packages, so that dependencies are checked for real ----
mkdir -p "$root"/etc "$root"/var/lib/dpkg/{info,updates,triggers}
touch "$root"/etc/{passwd,group,gshadow}
awk -v RS= -v ORS='\n\n' '!/^Package: (python3-)?zat-ms/' /var/lib/dpkg/status >"$root/var/lib/dpkg/status"
install() {
  as_root dpkg --root="$root" --force-script-chrootless --log=/dev/null "$@" >"$scratch/log" 2>&1 ||
    { grep -v 'files list file' "$scratch/log"; fail "dpkg $*"; }
}
packages=$(cpack --config "$build/CPackConfig.cmake" -B "$scratch/packages" >"$scratch/log" 2>&1 &&
  echo "$scratch"/packages/*.deb) || { cat "$scratch/log"; fail "cpack"; }
install -i $packages

# ---- a fresh installation is in order, for every member of the group ----
till() { # ARGUMENTS: as a user of the group who has made nothing here so far
  local as=(setpriv --reuid=12345 --regid=12345 --groups="$(stat -c %g "$site")")
  ((EUID)) && as=()
  (umask 077; "${as[@]}" "$site/BIN/zat_till" "$@")
}
[[ $(stat -c %a "$site" "$site/BIN" "$site/DOWNLOAD" | sort -u) == 2775 ]] || fail "modes: $(ls -ld "$site"/*)"
"$site/BIN/zat_tool" doctor || fail "the doctor"
till sale 12.00 | grep APPROVED >/dev/null || fail "a sale"
((EUID)) || "$site/BIN/zat_tool" doctor -q || fail "the doctor after another user's sale"
[[ -x $(readlink -f "$root$(readlink "$root/usr/bin/zat_tool")") ]] || fail "the link in the path"

# ---- tills are built against what is installed, and take a payment ----
export PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$root/usr/lib/python3/dist-packages
examples=$root/usr/share/doc/zat-ms/examples
python3 "$examples/python/till.py" "$site/BIN/libzat_ms.so" 12.00 | grep APPROVED >/dev/null || fail "the till in Python"

# ---- an upgrade keeps the administrator's settings and what tills have made, and takes new defaults ----
echo '# ours' >>"$site/micromgl.cfg"
next=1.0.0+next
for package in $packages; do
  dpkg-deb -R "$package" "$scratch/next"
  sed -i "s/^Version: .*/Version: $next/; s/(= [^)]*)/(= $next)/" "$scratch/next/DEBIAN/control"
  [[ ! -e $scratch/next/opt/zat_ms/eftpos.cfg ]] || echo '# theirs' >>"$scratch/next/opt/zat_ms/eftpos.cfg"
  as_root dpkg-deb --root-owner-group -Znone -b "$scratch/next" "$package" >/dev/null
  rm -r "$scratch/next"
done
install -i $packages
grep -q ours "$site/micromgl.cfg" && grep -q theirs "$site/eftpos.cfg" || fail "settings after the upgrade"
grep -qa 'MicroS' "$site/BIN/zat_comm.log" || fail "the log after the upgrade"
till sale 13.00 | grep APPROVED >/dev/null || fail "a sale after the upgrade"

# ---- removal leaves settings and what tills have made, purging nothing ----
names=$(dpkg-query --admindir="$root/var/lib/dpkg" -f '${Package} ' -W '*zat-ms*')
install -r $names
left=$(cd "$site" && find . -type f | sort | tr '\n' ' ')
[[ $left == "./BIN/zat_comm.log ./DOWNLOAD/1/verslist.upd ./eftpos.cfg ./micromgl.cfg ./simulator-1.day ./simulator.cfg ./till.jnl " ]] ||
  fail "after the removal: $left"
install -P $names
left=$(find "$root" -path "$root/var/lib/dpkg" -prune -o -type f ! -path "$root/etc/*" -print; grep zat "$root/etc/group" || true)
[[ -z $left && ! -e $site ]] || fail "after purging: $left"
