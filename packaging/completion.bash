# Completion of zat_till, zat_tool, zat_mu and zat_mm for bash. Commands, options and the values of options are what the
# program itself says with --help, so that nothing is written here twice.

# _zat_ms_help PROGRAM [COMMAND]: the help, in English whatever the user reads, since headings are looked for.
_zat_ms_help() { LC_ALL=C "$@" --help 2>/dev/null </dev/null; }

_zat_ms() {
  local program=${1/#\~/$HOME} current=$2 before=$3 word command='' commands help kind
  COMPREPLY=()
  commands=$(_zat_ms_help "$program" | sed -nE '/^(Commands|Subcommands):/,/^$/s/^  ([a-z-]+) .*/\1/p')
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ -z $command && $'\n'$commands$'\n' == *$'\n'"$word"$'\n'* ]] && command=$word
  done
  help=$(_zat_ms_help "$program" ${command:+"$command"})

  # What follows an option: in its line of the help one word says what it takes, FILE or TEXT:{auto,text,hex}=auto.
  if [[ $before == -* ]]; then
    kind=$(sed -nE "s/^ +(-[a-z],)?${before} ([^ ]+).*/\2/p; s/^ +${before},--[a-z-]+ ([^ ]+).*/\1/p" <<<"$help")
    case $kind in
      '' | Excludes:) ;; # nothing
      FILE | PATH | DIRECTORY | DEVICE* | TEXT) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
      *:{*}*) kind=${kind#*\{}; kind=${kind%%\}*}
        mapfile -t COMPREPLY < <(compgen -W "${kind//,/ }" -- "$current"); return ;;
      *) return ;; # a number, a time, an id
    esac
  fi
  if [[ $current == -* ]]; then
    word=$(sed -nE 's/^ +(zat_mu )?((-[a-z],)?--[a-z0-9-]+).*/\2/p' <<<"$help")
    mapfile -t COMPREPLY < <(compgen -W "${word//,/ }" -- "$current")
  elif [[ -n $commands && -z $command ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -o filenames -F _zat_ms zat_till zat_tool zat_mu zat_mm
