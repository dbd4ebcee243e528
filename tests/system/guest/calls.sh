# What the library asks of the kernel for a panel, call by call: usbfs writes it down. Sourced.

usbfs=/sys/module/usbcore/parameters

# record: the kernel writes down what follows, but no data. recorded FILE: stops that, and
# is what has been written.
record() {
  echo 0 > $usbfs/usbfs_snoop_max
  echo 'guest: usbfs writes' > /dev/kmsg
  echo Y > $usbfs/usbfs_snoop
}
recorded() {
  echo N > $usbfs/usbfs_snoop
  dmesg | awk '/guest: usbfs writes/ { text = "" } { text = text $0 "\n" } END { printf "%s", text }' |
    grep -E 'usbdev_do_ioctl|userurb' > "$1"
}

attach --panels 1
inBackground /tmp/watch.log 'panelctl watch --duration 3600'
watch=$background
# From then on the library itself has nothing to ask of the panel.
check 'the panel describes itself' says 'type 0 ' /tmp/watch.log
record
i=0
while [ $i -lt 20 ]; do
  i=$((i + 1))
  tell "$(printf 'emit type=20 hex=%02x' $i)"
  says "$(printf 'type 20 .* %02x$' $i)" /tmp/watch.log || break
done > /tmp/says.log
recorded /tmp/calls.log
check 'packets that come one by one arrive' counts 20 'type 20 ' /tmp/watch.log

# With each read that is done, the next one is with the kernel before the library looks for
# anything else: "REAPURBNDELAY" fetches a read or write that is done, one more is looking.
awk '
  /bulk-in, actual_length [0-9]+ status 0$/ { done++; if (waits) never++; waits = 1; looks = 0 }
  /bulk-out, actual_length/ { writes++ }
  /REAPURBNDELAY/ { if (writes) writes--; else looks++ }
  /bulk-in, length/ { if (waits && looks > 1) late++; waits = 0 }
  END { print done + 0 " reads done, " never + 0 " with no next one, " late + 0 " with a late one" }
' /tmp/calls.log > /tmp/reads.log
cat /tmp/calls.log >> /tmp/reads.log
check 'each read that is done is followed by the next at once' \
  has '^[2-9][0-9] reads done, 0 with no next one, 0 with a late one$' /tmp/reads.log

record
check 'the tool that is told to end does so in order' endsInOrder "$watch" /tmp/watch.log
recorded /tmp/calls.log
awk '
  BEGIN { reads = 1 }
  /bulk-in, actual_length/ { reads = 0 }
  /bulk-in, length/ { reads = 1 }
  /RELEASEINTERFACE/ { print reads ? "let go while it reads" : "let go" }
' /tmp/calls.log > /tmp/end.log
cat /tmp/calls.log >> /tmp/end.log
check '... after it has taken its read back and let go of the panel' has '^let go$' /tmp/end.log
check 'the simulated panel saw no violation' detach
