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

# as USER COMMAND: a shell command, with that user's groups and no more.
as() {
  su "$1" -c "$2"
}

# await SECONDS COMMAND...: tries until the command succeeds. The limit is for a guest
# that is stuck, not for one that is slow.
await() {
  local left=$(($1 * 5))
  shift
  until "$@"; do
    left=$((left - 1))
    [ $left -gt 0 ] || return 1
    usleep 200000
  done
}

# says PATTERN FILE [TIMES]: so many lines of the file have it, or will.
says() {
  await 30 atLeast "${3-1}" "$1" "$2" && return
  echo "within 30 s there were not ${3-1} lines with '$1'; the file ends with:"
  tail -n 20 "$2"
  return 1
}

atLeast() {
  [ "$(grep -c -e "$2" "$3")" -ge "$1" ]
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
