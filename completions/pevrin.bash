# bash completion for pevrin
_pevrin() {
  local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} options files=1
  if [ "$COMP_CWORD" -eq 1 ]; then
    mapfile -t COMPREPLY < <(compgen -W "inspect play remux --help --version" -- "$word")
    return
  fi
  case $command in
    inspect) options="--help --json --verify --samples" ;;
    play) options="--help --rate --start --duration --json" ;;
    remux) options="--help --fragment --faststart --rate" ;;
  esac
  case ${COMP_WORDS[COMP_CWORD - 1]} in
    --rate | --start | --duration | --fragment) files= options= ;; # its value, which is typed
  esac
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
  elif [ -n "$files" ]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -F _pevrin pevrin
