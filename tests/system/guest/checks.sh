# For the guest's test scripts: checks, each a line "ok: ..." or "FAILED: ..." with what
# was seen. Sourced.

checksMade=0
checksFailed=0

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
