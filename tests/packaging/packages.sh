#!/usr/bin/env bash
# The Debian packages in a root directory of their own: installed, built against, upgraded, removed, purged.
# Usage: packages.sh BUILD_DIRECTORY
set -euo pipefail
build=$1
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
member() { # USER PROGRAM ARGUMENTS: as a user of the group, with a tight umask; without root as whoever this is
  local as=(setpriv --reuid="$1" --regid="$1" --groups="$(stat -c %g "$site")")
  ((EUID)) && as=()
  (umask 077; "${as[@]}" "$site/BIN/$2" "${@:3}")
}
[[ $(stat -c %a "$site" "$site/BIN" "$site/DOWNLOAD" | sort -u) == 2775 ]] || fail "modes: $(ls -ld "$site"/*)"
"$site/BIN/zat_tool" doctor || fail "the doctor"
member 12345 zat_till sale 12.00 | grep APPROVED >/dev/null || fail "a sale"
member 12346 zat_tool doctor -q || fail "the doctor after another user's sale"
[[ -x $root$(readlink "$root/usr/bin/zat_tool") && -x $site/BIN/libzat_ms.so ]] || fail "what can be executed"

# ---- the examples are built against what is installed, with CMake, pkg-config and nothing, and take a payment ----
examples=$root/usr/share/doc/zat-ms/examples object=$site/BIN/libzat_ms.so
export PKG_CONFIG_PATH=$(dirname "$root"/usr/lib/*/pkgconfig/zat_ms.pc) PYTHONDONTWRITEBYTECODE=1
pc() { pkg-config --define-variable=installation="$site" --cflags --libs "$@"; }
for language in c cpp; do
  { cmake -G Ninja -S "$examples/$language" -B "$scratch/$language" -DCMAKE_PREFIX_PATH="$root/usr" &&
    cmake --build "$scratch/$language"; } >"$scratch/log" || { cat "$scratch/log"; fail "$language with CMake"; }
done
gcc -std=c99 "$examples/c/till.c" -o "$scratch/pc_c" $(pc zat_ms)
g++ -std=c++17 "$examples/cpp/till.cpp" -o "$scratch/pc_cpp" $(pc zat_client)
g++ -std=c++20 -fsyntax-only -include zat_link.h -x c++ /dev/null $(pc zat_link) || fail "the headers of the link facility"
cat >"$scratch/load.h" <<'END' # the functions by their names at run time
#include <dlfcn.h>
#include <stdlib.h>
#include <zat_ms.h>
#define FUNCTION(type, name) ((type)dlsym(dlopen(getenv("OBJECT"), RTLD_NOW), name))
#define eftp_create FUNCTION(zat_ms_create_fn, "eftp_create")
#define eftp_do FUNCTION(zat_ms_do_fn, "eftp_do")
#define eftp_destroy FUNCTION(zat_ms_destroy_fn, "eftp_destroy")
END
gcc -include "$scratch/load.h" -I"$root/usr/include" "$examples/c/till.c" -o "$scratch/dl_c" -ldl
pays() { # COMMAND with the word AMOUNT in it
  "${@/AMOUNT/$good}" >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "$1 is not paid"; }
  "${@/AMOUNT/$bad}" >"$scratch/log" 2>&1 || true
  grep -Ei '^(not paid|declined)' "$scratch/log" >/dev/null || { cat "$scratch/log"; fail "$1 is not declined"; }
}
good=1200 bad=1251
for program in c/till_c pc_c dl_c; do OBJECT=$object pays "$scratch/$program" AMOUNT; done
good=12.00 bad=12.51
for program in cpp/till_cpp pc_cpp; do pays "$scratch/$program" AMOUNT "$object"; done
PYTHONPATH=$root/usr/lib/python3/dist-packages pays python3 "$examples/python/till.py" AMOUNT "$object"

# ---- an upgrade keeps the administrator's settings and what tills have made, and takes new defaults ----
echo '# ours' >>"$site/micromgl.cfg"
next=99
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
member 12347 zat_till sale 13.00 | grep APPROVED >/dev/null || fail "a sale after the upgrade"

# ---- removal leaves settings and what tills have made, purging nothing ----
names=$(dpkg-query --admindir="$root/var/lib/dpkg" -f '${Package} ' -W '*zat-ms*')
install -r $names
left=$(cd "$site" && find . -type f | sort | tr '\n' ' ')
[[ $left == "./BIN/zat_comm.log ./DOWNLOAD/1/verslist.upd ./eftpos.cfg ./micromgl.cfg ./simulator-1.day ./simulator.cfg ./till.jnl " ]] ||
  fail "after the removal: $left"
install -P $names
left=$(find "$root" -path "$root/var/lib/dpkg" -prune -o -type f ! -path "$root/etc/*" -print; grep zat "$root/etc/group" || true)
[[ -z $left && ! -e $site ]] || fail "after purging: $left"
