# bash completion for ostrel-scan; installed as
# share/bash-completion/completions/ostrel-scan.
# shellcheck shell=bash disable=SC2207 # compgen prints one completion a line
_ostrel_scan() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
  case $prev in
    --tuner | --trace | --save-json | --channels | -o)
      compopt -o filenames 2>/dev/null
      COMPREPLY=($(compgen -f -- "$cur"))
      return
      ;;
    --dvb)
      compopt -o filenames 2>/dev/null
      COMPREPLY=($(compgen -d -- "${cur:-/dev/dvb/}"))
      return
      ;;
    --channels-format)
      COMPREPLY=($(compgen -W 'dvbv5 vdr' -- "$cur"))
      return
      ;;
    --bitrate | --timeout | -t | --interval | --rounds | --drop | --corrupt | --delay | \
      --hide | --seed)
      return  # a number
      ;;
  esac
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W '--tuner --dvb --json --save-json --health --trace --channels --channels-format --fast --bitrate --once --timeout
      --no-latency --interval --rounds --drop --corrupt --delay --hide --seed --quiet --verbose
      --help --version -j -o -f -t -q -v -h -V' -- "$cur"))
    return
  fi
  # The command comes first; then inputs: transport-stream files and folders.
  COMPREPLY=()
  if [ "$COMP_CWORD" -eq 1 ]; then
    COMPREPLY=($(compgen -W 'scan watch' -- "$cur"))
  fi
  compopt -o filenames 2>/dev/null
  COMPREPLY+=($(compgen -f -X '!*.@(ts|TS|m2ts|mts|trp|tp)' -- "$cur") $(compgen -d -- "$cur"))
}
complete -F _ostrel_scan ostrel-scan
