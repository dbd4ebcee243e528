# For the guest's test scripts: checks, each a line "ok: ..." or "FAILED: ..." with what
# was seen. Sourced.

checksMade=0
checksFailed=0

# part NAME: says what comes, and how far the guest is within its time.
part() {
  local seconds
  read -r seconds _ < /proc/uptime
  echo "-- $1 (after $seconds s)"
}

# passed TEXT, failed TEXT [FILE]: counts and prints. The file tells what was seen.
passed() {
  checksMade=$((checksMade + 1))
  echo "ok: $1"
}

failed() {
  checksMade=$((checksMade + 1))
  checksFailed=$((checksFailed + 1))
  echo "FAILED: $1"
  [ -z "$2" ] || sed 's/^/    | /' "$2"
}

# check TEXT COMMAND...: the command ends with 0.
check() {
  local text=$1
  shift
  if "$@" > /tmp/check.log 2>&1; then
    passed "$text"
  else
    echo "(exit code $?: $*)" >> /tmp/check.log
    failed "$text" /tmp/check.log
  fi
}

# verdict: the last line that the host looks for.
verdict() {
  echo "checks: $checksMade made, $checksFailed failed"
  [ "$checksFailed" -eq 0 ]
}

# A process that has ended, waited for or not.
isGone() {
  local state
  { read -r _ _ state _ < "/proc/$1/stat"; } 2> /dev/null || return 0
  [ "$state" = Z ]
}

killStuck() {
  echo "process $1 did not end and is killed"
  kill -KILL "$1"
}

# as USER COMMAND: a shell command, with that user's groups and no more. It is killed when
# it does not end.
as() {
  local process code=0
  su "$1" -c "$2" &
  process=$!
  await isGone $process || killStuck $process
  wait $process || code=$?
  return $code
}

# Seconds for each wait: for what never comes, however slow the guest. When that has been
# waited for once, the guest has failed, and the rest need not take long.
patience=120

# await COMMAND...: tries until the command succeeds. While it waits the console goes on,
# as its silence counts as a guest that is stuck.
await() {
  local begin now told
  read -r begin _ < /proc/uptime
  begin=${begin%.*}
  told=$begin
  until "$@"; do
    read -r now _ < /proc/uptime
    now=${now%.*}
    if [ $((now - begin)) -ge $patience ]; then
      patience=20
      return 1
    fi
    if [ $((now - told)) -ge 10 ]; then
      told=$now
      echo "waiting: $*" > /dev/console
    fi
    usleep 100000
  done
}

# says PATTERN FILE [TIMES]: so many lines of the file have it, or will.
says() {
  await atLeast "${3-1}" "$1" "$2" && return
  echo "there were not ${3-1} lines with '$1', and none came; the file ends with:"
  tail -n 20 "$2"
  return 1
}

atLeast() {
  [ "$(grep -c -e "$2" "$3")" -ge "$1" ]
}

# has PATTERN FILE: a line has it, now.
has() {
  grep -q -e "$1" "$2" && return
  echo "no line with '$1'; the file begins with:"
  head -n 20 "$2"
  return 1
}

# counts NUMBER PATTERN FILE: so many lines have it, now.
counts() {
  local found
  found=$(grep -c -e "$2" "$3")
  [ "$found" -eq "$1" ] && return
  echo "$found lines with '$2' instead of $1; the file ends with:"
  tail -n 20 "$3"
  return 1
}
