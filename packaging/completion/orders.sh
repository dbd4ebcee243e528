# What can follow these words of an order: `following`, and whether something must. For
# bash and zsh.
_PROGRAM_follow() # WORD...
{
  [ -z "${ZSH_VERSION-}" ] || setopt localoptions shwordsplit
  local seconds places place entry word is_required
  following='' must_follow=''
  if [ $# -eq 0 ]; then
    following=$_PROGRAM_verbs must_follow=yes
    return
  fi
  local verb=$1
  _PROGRAM_places "$verb" || return 0
  shift
  case ${1-} in [0-9]*) shift ;; esac
  if [ $# -eq 0 ]; then
    following=$seconds
  elif _PROGRAM_places "$verb" "$1"; then
    shift
  else
    _PROGRAM_places "$verb"
  fi
  for place in "${places[@]}"; do
    is_required=${place%% *}
    place=${place#* }
    for entry in $place; do
      for word in "$@"; do
        case $entry in
          *=) [ "${word%%=*}=" != "$entry" ] || continue 3 ;;
          *) [ "$word" != "$entry" ] || continue 3 ;;
        esac
      done
    done
    following="$following $place"
    if [ "$is_required" = required ]; then
      must_follow=yes
      return
    fi
  done
}

