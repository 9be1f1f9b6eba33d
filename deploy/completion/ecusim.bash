# shellcheck shell=bash
# Completion of ecusim(1).

# The command on the command line; play is the default.
_ecusim_command() {
  local word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $word in
      play | scenario | fleet)
        echo "$word"
        return
        ;;
    esac
  done
  echo none
}

_ecusim_play='-h --help --host -p --port --user --password-file --cafile --cert --key --ports --group --mode'

_ecusim_fleet='-h --help --host -p --port --spread --change'

# The possible words: the options and, before a command, the commands.
_ecusim_words() {
  case $(_ecusim_command) in
    none) echo "play scenario fleet -V --version $_ecusim_play" ;;
    play) echo "$_ecusim_play" ;;
    scenario) echo '-h --help' ;;
    fleet) echo "$_ecusim_fleet" ;;
  esac
}

_ecusim() {
  local current=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]}
  # The shell splits --option=value into three words.
  if [[ $current == '=' ]]; then
    current=
  elif [[ $option == '=' ]]; then
    option=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  COMPREPLY=()
  case $option in
    --host)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -A "$([[ $current == /* ]] && echo file || echo hostname)" -- "$current")
      ;;
    --ports)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      ;;
    --group)
      mapfile -t COMPREPLY < <(compgen -g -- "$current")
      ;;
    --password-file | --cafile | --cert | --key)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
    -p | --port | --user | --mode | --spread | --change) ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W "$(_ecusim_words)" -- "$current")
      if [[ $current != -* && $(_ecusim_command) =~ ^(none|play)$ ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -d -- "$current"; compgen -f -X '!*.json' -- "$current")
      fi
      ;;
  esac
}

complete -F _ecusim ecusim
