# shellcheck shell=bash
# Completion of tolquil-uplink(8).

_tolquil-uplink() {
  local current=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]}
  # Of --option=value the shell makes three words.
  if [[ $current == '=' ]]; then
    current=
  elif [[ $option == '=' ]]; then
    option=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  case $option in
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

complete -F _tolquil-uplink tolquil-uplink
