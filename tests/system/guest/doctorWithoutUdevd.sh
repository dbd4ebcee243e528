# `panelctl doctor` where no udevd runs. Sourced; a panel is attached.

rm -f /tmp/doctor.log
check 'doctor: no udevd is 12, an error to those who may not open the node' \
  exits 12 member 'panelctl doctor > /tmp/doctor.log'
check '... and told' has '^error    no udevd runs' /tmp/doctor.log
rm -f /tmp/doctor.log
check '... and a warning to root' exits 12 root 'panelctl doctor > /tmp/doctor.log'
check '... and told' has '^warning  no udevd runs' /tmp/doctor.log
