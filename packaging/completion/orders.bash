# An order is one argument: what is offered is all of it so far, and more than one as long
# as it is not complete, because after the only one readline closes the quote.
_PROGRAM_order()
{
  local quote='' text=$cur following must_follow candidate words more=()
  case $cur in
    [\'\"]*) quote=${cur:0:1} text=${cur:1} ;;
  esac
  local head=${text% *} last=${text##* }
  if [ "$head" = "$text" ]; then head=''; else head+=' '; fi
  read -ra words <<< "$head"
  _PROGRAM_follow "${words[@]}"
  mapfile -t COMPREPLY < <(compgen -P "$head" -W "$following" -- "$last")
  while [ ${#COMPREPLY[@]} -eq 1 ]; do
    candidate=${COMPREPLY[0]}
    if [ "${candidate%=}" != "$candidate" ]; then
      COMPREPLY=("$candidate" "$candidate...")
      break
    fi
    read -ra words <<< "$candidate"
    _PROGRAM_follow "${words[@]}"
    [ -n "$must_follow" ] || break
    mapfile -t more < <(compgen -P "$candidate " -W "$following")
    COMPREPLY=("${more[@]}")
  done
  [ -n "$quote" ] || [ "${COMPREPLY[*]/ /}" = "${COMPREPLY[*]}" ] || COMPREPLY=("${COMPREPLY[@]/#/\'}")
}

