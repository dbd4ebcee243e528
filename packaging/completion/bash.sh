_PROGRAM_value() # KIND
{
  local before
  case $1 in
    file) mapfile -t COMPREPLY < <(compgen -f -- "$cur") && compopt -o filenames -o default 2> /dev/null ;;
    folder) mapfile -t COMPREPLY < <(compgen -d -- "$cur") && compopt -o filenames -o dirnames 2> /dev/null ;;
    picture)
      mapfile -t COMPREPLY < <(compgen -f -X '!*.[pP][nN][gG]' -- "$cur"; compgen -d -- "$cur")
      compopt -o filenames -o default 2> /dev/null
      ;;
    'word '*) mapfile -t COMPREPLY < <(compgen -W "${1#* }" -- "$cur") ;;
    'words '*)
      before=${cur%"${cur##*,}"}
      mapfile -t COMPREPLY < <(compgen -P "$before" -W "${1#* }" -- "${cur##*,}")
      ;;
    order) _PROGRAM_order ;;
    program) mapfile -t COMPREPLY < <(compgen -W '--' -- "$cur") ;;
  esac
}

# The line as the program gets it: bash takes = and : for words of their own. What is behind
# "--" is another program's line where such a one is expected.
_PROGRAM()
{
  local cur=${COMP_WORDS[COMP_CWORD]} command='' place=1 options='' values=() awaited=() is_ended='' word i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    if [ "$word" = : ] || [ "${COMP_WORDS[i - 1]}" = : ]; then
      continue
    elif [ "$word" = = ] && [ "${COMP_WORDS[i - 1]#--}" != "${COMP_WORDS[i - 1]}" ]; then
      continue
    elif [ ${#awaited[@]} -gt 0 ]; then
      awaited=("${awaited[@]:1}")
    elif [ "$word" = -- ] && [ -z "$is_ended" ]; then
      is_ended=yes
      _PROGRAM_values "$command" "$place"
      if [ "${values[*]}" = program ]; then
        _PROGRAM_program $((i + 1))
        return
      fi
    elif [ -z "$is_ended" ] && [ "${word#-}" != "$word" ] && [ "$word" != - ]; then
      _PROGRAM_values "$command" "$word"
      awaited=("${values[@]}")
    elif [ -z "$command" ]; then
      command=$word
    else
      place=$((place + 1))
    fi
  done
  [ "${COMP_WORDS[COMP_CWORD - 1]}" != : ] || return 0
  [ "$cur" != = ] || cur=''
  if [ ${#awaited[@]} -gt 0 ]; then
    _PROGRAM_value "${awaited[0]}"
    return
  fi
  _PROGRAM_options "$command"
  _PROGRAM_values "$command" "$place"
  if [ -z "$is_ended" ] && [ "${cur#-}" != "$cur" ]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
  elif [ -z "$command" ]; then
    mapfile -t COMPREPLY < <(compgen -W "$_PROGRAM_commands" -- "$cur")
  elif [ ${#values[@]} -gt 0 ]; then
    _PROGRAM_value "${values[0]}"
  fi
}

_PROGRAM_program() # where it begins
{
  if declare -F _command_offset > /dev/null; then
    _command_offset "$1"
  elif [ "$COMP_CWORD" -eq "$1" ]; then
    mapfile -t COMPREPLY < <(compgen -c -- "$cur")
  else
    compopt -o default 2> /dev/null
  fi
}

complete -F _PROGRAM PROGRAM
