# shellcheck shell=bash
# Completion of quilctl(1).

_quilctl_variables() {
  quilctl describe --json 2>/dev/null | sed -n 's/^{"name":"\([^"]*\)".*/\1/p'
}

# The command on the command line, such as "param set", and the selected value of the secure storage; empty without a
# command.
_quilctl_command() {
  local word before='' command=''
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ $word == '=' ]]; then
      continue
    fi
    case $before in
      --host | -p | --port | --user | --password-file | --cafile | --cert | --key | --config | --timeout | --fleet-prefix)
        before=
        continue
        ;;
    esac
    before=$word
    case $command/$word in
      /list | /get | /watch | /describe | /param | /secstore | /status | /check | /decode | /record | /replay | /retire | /help) command=$word ;;
      help/*) command+=" $word" ;;
      param/get | param/list | param/set | secstore/get | secstore/set) command+=" $word" ;;
      'secstore get/master' | 'secstore get/remote' | 'secstore set/master' | 'secstore set/remote') command+=" $word" ;;
    esac
  done
  echo "$command"
}

_quilctl_options() {
  echo '-h --help -V --version --host -p --port --user --password-file --cafile --cert --key --config --timeout
    --fleet --fleet-prefix -v --verbose'
  if [[ $1 != record && $1 != replay ]]; then
    echo --json
  fi
  case $1 in
    list) echo '--format --raw --shell --expect' ;;
    get) echo '--wait --default --format --raw' ;;
    watch) echo '--table --count --exec --format --raw' ;;
    'param get') echo '--raw' ;;
    'secstore get'*) echo '--reveal --raw' ;;
    decode) echo '--count --reveal' ;;
    record) echo '--topics --duration --reveal' ;;
    replay) echo '--speed --topics' ;;
    retire) echo --yes ;;
  esac
}

_quilctl_arguments() {
  case $1 in
    '' | help) echo 'list get watch describe param secstore status check decode record replay retire help' ;;
    list | get | watch | describe) _quilctl_variables ;;
    param | 'help param') echo 'get list set' ;;
    secstore | 'help secstore') echo 'get set' ;;
    'secstore get' | 'secstore set') echo 'master remote' ;;
    decode) echo 'rt/# system/# system/var/#' ;;
  esac
}

_quilctl() {
  local current=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} command
  # The shell splits --option=value into three words, @FILE into two.
  if [[ $current == '=' ]]; then
    current=
  elif [[ $option == '=' ]]; then
    option=${COMP_WORDS[COMP_CWORD - 2]}
  elif [[ $option == '@' ]]; then
    current=@$current
  fi
  COMPREPLY=()
  command=$(_quilctl_command)
  case $option in
    --host)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -A "$([[ $current == /* ]] && echo file || echo hostname)" -- "$current")
      return
      ;;
    --password-file | --cafile | --cert | --key | --config | --expect)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    -p | --port | --user | --timeout | --fleet-prefix | --wait | --default | --format | --exec | --count | --duration | --speed) return ;;
    --topics)
      mapfile -t COMPREPLY < <(compgen -W 'rt/# system/#' -- "$current")
      return
      ;;
  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(_quilctl_options "$command")" -- "$current")
  elif [[ $command == check || $command == record || $command == replay ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  elif [[ $command == 'secstore set '* ]]; then
    mapfile -t COMPREPLY < <(compgen -W - -- "$current"; compgen -P @ -f -- "${current#@}")
  else
    mapfile -t COMPREPLY < <(compgen -W "$(_quilctl_arguments "$command")" -- "$current")
  fi
}

complete -F _quilctl quilctl
