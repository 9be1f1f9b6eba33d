# shellcheck shell=bash
# Completion of tolquil-uplink(8).

_tolquil_uplink() {
  local current=${COMP_WORDS[COMP_CWORD]}
  case ${COMP_WORDS[COMP_CWORD - 1]} in
    -c | --config)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
    -l | --loglevel)
      mapfile -t COMPREPLY < <(
        compgen -W 'EMERG ALERT CRITICAL ERROR WARNING NOTICE INFO DEBUG' -- "${current^^}"
      )
      ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W '-c --config -l --loglevel --check -h --help -V --version' -- "$current")
      ;;
  esac
}

complete -F _tolquil_uplink tolquil-uplink
