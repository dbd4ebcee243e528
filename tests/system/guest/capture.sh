# The link as the kernel's usbmon sees it, beside programs that know nothing of it: the host
# compares it with what they did, and with what the simulated panel recorded. Sourced.

check 'the kernel has usbmon' insmod /lib/modules/usbmon.ko
tcpdump -Z root -U -i usbmon1 -w /tmp/usbmon.pcap > /tmp/tcpdump.log 2>&1 &
capturing=$!
check 'tcpdump listens to the bus' says 'listening on usbmon1' /tmp/tcpdump.log
attach --panels 1 --record /tmp/panelsim.pcap
check 'a captured tool learns what the panel is' exits 0 member 'panelctl info'
check '... sends records' exits 0 member 'panelctl send --type 5 --hex "01 02 03" --repeat 3'
inBackground /tmp/watch.log 'panelctl watch --count 2 --duration 600'
check '... waits for some' says arrived /tmp/watch.log
tell 'emit type=20 hex=aabbcc count=2'
check '... gets them' endsWith 0 "$background"
check '... and draws' exits 0 member 'panelctl draw /tests/demo-lcd.png --lcd 1 --size 24x16'
check 'the simulated panel saw no violation' detach
# A frame that is still on its way to tcpdump has no sign by which to wait for it.
await noNode
kill -INT "$capturing"
check 'tcpdump has missed no frame' endsWith 0 "$capturing"
check '... by its own account' has '^0 packets dropped by kernel' /tmp/tcpdump.log
# The host reads these lines.
for name in usbmon panelsim; do
  base64 "/tmp/$name.pcap" | sed "s/^/capture: $name /"
done
