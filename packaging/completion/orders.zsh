# An order is one argument, whose words are completed one by one.
_PROGRAM_order()
{
  local following must_follow
  compset -q
  _PROGRAM_follow "${(@)words[1,CURRENT-1]}"
  local -a with_value=(${(M)${=following}:#*=}) without=(${${=following}:#*=})
  compadd -S '' -a with_value
  compadd -a without
}

