# `panelctl doctor`: what is amiss, on a real kernel, and that its own commands mend it.
# Sourced.

# examines CODE USER [OPTION...]: what the doctor says to this user is in /tmp/doctor.log.
examines() {
  local code=$1 user=$2
  shift 2
  rm -f /tmp/doctor.log
  exits "$code" "$user" "panelctl doctor ${*:---timeout 30} > /tmp/doctor.log" && return
  cat /tmp/doctor.log
  return 1
}

# saysSo TEXT: as it stands, in what the doctor has said.
saysSo() {
  grep -q -F -e "$1" /tmp/doctor.log && return
  cat /tmp/doctor.log
  return 1
}

# mend: what the doctor has said, done by root.
mend() {
  sed -n 's/^ *\$ //p' /tmp/doctor.log > /tmp/commands
  { echo 'sudo() { "$@"; }'; cat /tmp/commands; } > /tmp/mend
  sh -x /tmp/mend
  udevadm settle --timeout=30
}

check 'doctor: no panel is 3' examines 3 member
attach --panels 1
node=$(nodes)
check 'doctor: for a user in plugdev nothing is amiss' examines 0 member
check '... nor for root' examines 0 root
check 'doctor: a user who is not in the group is 15' examines 15 stranger
check '... and is told the command' saysSo '$ sudo usermod -aG plugdev stranger'

inBackground /tmp/watch.log 'panelctl watch --duration 600'
watch=$background
check 'doctor: another program has the panel' says '0101  arrived  at 1-1' /tmp/watch.log
check '... which is 18' examines 18 member
check '... with name, process and user' \
  saysSo "panelctl (process $watch, user member) has $node open."
mend > /tmp/mend.log 2>&1
check '... and ended by the command' endsWith 143 "$watch"
check '... after which nothing is amiss' examines 0 member
su root -c 'exec panelctl watch --duration 600' > /tmp/watch.log 2>&1 &
watch=$!
check 'doctor: a program of root has it' says '0101  arrived  at 1-1' /tmp/watch.log
check '... which is 18 to others, too' examines 18 member
check '... who are sent to root' saysSo '$ sudo panelctl doctor'
check '... who is told' examines 18 root
check '... all of it' saysSo "panelctl (process $watch, user root) has $node open."
check 'that program ends in order' endsInOrder "$watch" /tmp/watch.log

chmod 600 "$node"
check 'doctor: a node that the rule has not been applied to is 16' examines 16 member
check '... and is told' saysSo "member may not open $node (Permission denied)."
mend > /tmp/mend.log 2>&1
check '... and mended by the command' examines 0 member

mv /lib/udev/rules.d/70-morvane-panel.rules /tmp/rule
udevadm control --reload
chgrp root "$node" # as when it is plugged in without the rule
check 'doctor: no rule is 13' examines 13 member
mend > /tmp/mend.log 2>&1
check '... and mended by the commands' examines 0 member
mkdir -p /etc/udev/rules.d
sed 's/dead/1a2b/' /tmp/rule > /etc/udev/rules.d/70-morvane-panel.rules
mv /tmp/rule /lib/udev/rules.d/70-morvane-panel.rules
udevadm control --reload
chgrp root "$node"
check 'doctor: a rule that does not name the panel is 14' examines 14 member
check '... and is named' saysSo 'it does not name dead:beef.'
mend > /tmp/mend.log 2>&1
check '... and mended by the commands' examines 0 member
rm -f /etc/udev/rules.d/70-morvane-panel.rules
udevadm control --reload

# Not in the time that the checks take.
echo 3600000 > /sys/bus/usb/devices/1-1/power/autosuspend_delay_ms
echo auto > /sys/bus/usb/devices/1-1/power/control
check 'doctor: autosuspend is 22' examines 22 member
mend > /tmp/mend.log 2>&1
check '... and mended by the command' examines 0 member

tell 'fault in silent sticky'
check 'doctor: a panel that says nothing is 20' examines 20 member --timeout 2
tell 'fault clear'
mend > /tmp/mend.log 2>&1
check '... and set up anew by the commands' await examines 0 member
check 'the simulated panel saw no violation' detach
