# Simulated panels on the guest's own USB bus, and the tool run by ordinary users. Sourced.

# A simulation that has ended must not end the script, which writes to it.
trap '' PIPE

simulator=
simulatorLog=/tmp/panelsim.log # what panelsim prints
eventLog=/tmp/events.log       # what happens to the panels, a line each

# attach OPTION...: plugs panels in and waits until the kernel has made their nodes.
attach() {
  rm -f /tmp/orders
  mkfifo /tmp/orders
  : > "$simulatorLog"
  : > "$eventLog"
  await noNode || failed 'the panels before have gone'
  panelsim attach --log "$eventLog" "$@" < /tmp/orders > "$simulatorLog" 2>&1 &
  simulator=$!
  exec 3> /tmp/orders
  await grep -q attached "$simulatorLog" || failed 'the simulated panels can be attached' "$simulatorLog"
  await anyNode || failed 'the kernel makes a node for a panel' "$simulatorLog"
  udevadm settle --timeout=30 2> /dev/null
}

# tell COMMAND: to the running simulation.
tell() {
  echo "$1" >&3
}

# detach: unplugs; succeeds when no panel has seen a violation of the wire.
detach() {
  tell quit
  exec 3>&-
  await isGone "$simulator" || killStuck "$simulator"
  wait "$simulator" && return
  tail -n 20 "$simulatorLog"
  return 1
}

# The device files of the panels, as the kernel numbers them.
nodes() {
  local folder
  for folder in /sys/bus/usb/devices/*; do
    [ "$(cat "$folder/idVendor" 2> /dev/null)" = dead ] || continue
    printf '/dev/bus/usb/%03d/%03d\n' "$(cat "$folder/busnum")" "$(cat "$folder/devnum")"
  done
}

anyNode() { [ -n "$(nodes)" ]; }
noNode() { [ -z "$(nodes)" ]; }

# holds NUMBER PROCESS: so many panels' nodes are open in it, those of panels that are gone
# among them.
holds() {
  ls -l "/proc/$2/fd" > /tmp/fd.log
  counts "$1" '-> /dev/bus/usb/' /tmp/fd.log
}

# inBackground FILE COMMAND: as member; `background` is its process.
background=
inBackground() {
  su member -c "exec $2" > "$1" 2>&1 &
  background=$!
}

# endsWith CODE PROCESS: it ends, and so. It is killed when it does not end.
endsWith() {
  local code=0
  await isGone "$2" || killStuck "$2"
  wait "$2" || code=$?
  echo "exit code $code, expected $1"
  [ $code -eq "$1" ]
}

# endsInOrder PROCESS FILE: told to end, a watching tool sums up, and only after the library
# has shut down it says why. The exit code alone is also that of a tool that SIGTERM killed.
endsInOrder() {
  kill "$1"
  endsWith 143 "$1" || return 1
  grep -q '[0-9] packets*, [0-9]* arrivals*, [0-9]* departures*$' "$2" &&
    [ "$(tail -n 1 "$2")" = 'panelctl: interrupted' ] && return
  echo 'its output ends with:'
  tail -n 5 "$2"
  return 1
}

# exits CODE USER COMMAND
exits() {
  local code=0
  as "$2" "$3" || code=$?
  echo "exit code $code, expected $1"
  [ $code -eq "$1" ]
}
