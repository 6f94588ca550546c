#!/usr/bin/env bash
# The manual pages and the completion say what the programs and the configuration files say, and their examples work.
# Usage: pages.sh BUILD_DIRECTORY SOURCE_DIRECTORY
set -euo pipefail
build=$1 top=$2 man=$2/docs/man
scratch=$(mktemp -d /tmp/zat_pages.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
failed=0
complain() { printf 'FAILED: %s\n' "$*"; failed=1; }

# same WHAT REAL PAGE: two lists of lines
same() { diff <(sort -u <<<"$2") <(sort -u <<<"$3") || complain "$1: < is so, > is on the page"; }

# ---- form ----
for page in "$man"/*.[1-8]; do
  # Pages that are not installed here, and a system that is not NetBSD, are no faults.
  faults=$({ mandoc -T lint "$page"; man --warnings -l "$page" >/dev/null; } 2>&1 |
    grep -v -e 'referenced manual not found' -e 'operating system explicitly' -e 'outdated mandoc.db' || true)
  [[ -z $faults ]] || complain "$faults"
  while read -r name section; do
    [[ $name =~ ^(zat_|eftp|.*\.cfg) && ! -e $man/$name.$section ]] && complain "$page: no page $name($section)"
  done < <(sed -nE 's/^\.Xr ([^ ]+) ([1-8]).*/\1 \2/p' "$page")
done

# ---- options and commands ----
help() { LC_ALL=C "$build/BIN/$1" "${@:2}" --help; }
options() { help "$@" | sed -nE 's/^ +(zat_mu )?((-[a-z],)?--[a-z0-9-]+).*/\2/p'; }
commands() { help "$1" | sed -nE '/^(Commands|Subcommands):/,/^$/s/^  ([a-z-]+) .*/\1/p'; }
on_page() { sed -nE 's/^\.It Fl ([a-z]) , Fl Fl ([a-z0-9-]+).*/-\1,--\2/p; s/^\.It Fl Fl ([a-z0-9-]+).*/--\1/p' "$@"; }

same "options of zat_mm" "$(options zat_mm)" "$(on_page "$man/zat_mm.8")"
same "options of zat_mu" "$(options zat_mu)" "$(on_page "$man/zat_mu.8")"
same "commands of zat_till" "$(commands zat_till)" "$(sed -nE 's/^\.It Cm ([^ ]+).*/\1/p' "$man/zat_till.1")"
same "options of zat_till" "$(for command in '' $(commands zat_till); do options zat_till $command; done)" \
  "$(on_page "$man/zat_till.1")"
same "commands of zat_tool" "$(commands zat_tool)" "$(sed -nE 's/^\.Ss (.*)/\1/p' "$man/zat_tool.1")"
for command in $(commands zat_tool); do
  same "options of zat_tool $command" "$(options zat_tool "$command" | grep -v -e --help)" \
    "$(awk -v which="$command" '/^\.S[hs] / { on = $2 == which } on' "$man/zat_tool.1" | on_page)"
done

# ---- keys of the configuration; for a key of one work id the page has "id" ----
for file in "$top"/configuration/*.cfg; do
  same "keys of ${file##*/}" "$(sed -nE 's/^[#; ]*([A-Za-z0-9-]+) ?=.*/\1/p' "$file" | sed -E 's/-[0-9]{2}-/-id-/')" \
    "$(sed -nE 's/ Ns =.*//; s/ Ns (Ar|Cm) //g; s/^\.It Cm (.*)/\1/p' "$man/${file##*/}.5")"
done

# ---- examples ----
mkdir "$scratch/BIN"
cp "$build"/BIN/{libzat_ms.so,zat_mm} "$scratch/BIN/"
cp "$build"/*.cfg "$scratch/"
example() { # PAGE WHAT-IT-SAYS-AT-ITS-END
  sed -n '/^\.Bd -literal/,/^\.Ed/{/^\./d; s/\\e/\\/g; p}' "$man/$1.3" >"$scratch/$1.c"
  gcc -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$top/include" "$scratch/$1.c" -o "$scratch/$1" \
    -L"$scratch/BIN" -lzat_ms -Wl,-rpath,"$scratch/BIN" -ldl || complain "the example of $1 cannot be built"
  local said; said=$("$scratch/$1" "$scratch/BIN/libzat_ms.so" | tail -n 2 | tr '\n' ' ' | iconv -f cp1251 -t utf8)
  [[ $said == *"$2 " ]] || complain "the example of $1 says: $said"
}
example eftp_create "ready"
example eftp_do "paid"
example eftp_destroy "lost, asking the terminal paid"

# ---- completion ----
source "$top/packaging/completion.bash"
PATH=$build/BIN:$PATH
cd "$top"
completes() { # WORD... = COMPLETIONS
  local expected=${*: -1} COMP_WORDS=("${@:1:$#-2}")
  local COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _zat_ms "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  [[ ${COMPREPLY[*]} == "$expected" ]] || complain "${COMP_WORDS[*]} is completed to: ${COMPREPLY[*]}"
}
completes zat_till re = "refund reverse recover"
completes zat_till sale --t = "--track2 --tid"
completes zat_till sale 12.00 --lib READ = "README.md"
completes zat_till --tid '' = ""
completes zat_tool log --f = "--failed --follow"
completes zat_tool log --failed READ = "README.md"
completes zat_tool decode --as '' = "auto text hex"
completes zat_tool decode -f READ = "README.md"
completes zat_mu -- = "--pack --help"
completes zat_mm --o = "--outcomes"

exit $failed
