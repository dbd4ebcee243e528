# Unplugging under load, a stall, two panels. Sourced.

attach --panels 1
inBackground /tmp/watch.log 'panelctl watch --duration 600 --bytes 4'
watch=$background
check 'watch: the panel is there' says arrived /tmp/watch.log
for round in 1 2; do
  tell 'emit type=20 size=512 count=500 every=4'
  check "it streams, round $round" says 'type 20' /tmp/watch.log $((round * 20))
  tell unplug
  check "unplugged while it streams, round $round: it leaves" says '0101  left' /tmp/watch.log $round
  check '... and is not held open' holds 0 "$watch"
  tell plug
  check '... and comes back' says '0101  arrived' /tmp/watch.log $((round + 1))
  check '... and is open, once' holds 1 "$watch"
done
tell 'emit type=21 hex=77'
check '... and is heard' says 'type 21  *1 bytes*  *77' /tmp/watch.log
check 'the watching tool ends in order' endsInOrder "$watch" /tmp/watch.log

inBackground /tmp/send.log 'panelctl send --type 5 --hex 55 --repeat 10000000'
check 'records go out' says 'record type 5' "$eventLog" 50
tell unplug
check 'unplugged while records go out: the tool says that the panel has left' endsWith 4 "$background"
tell plug
check '... and it can be used when it is back' await as member 'panelctl info > /dev/null 2>&1'

check 'the simulated panel saw no violation' detach

# A new simulation: what the panel streamed above goes on after a re-plug, and would count.
attach --panels 1
inBackground /tmp/watch.log 'panelctl watch --count 3 --duration 600'
check 'watch: the panel is there' says arrived /tmp/watch.log
tell 'fault in stall once'
tell 'emit type=23 hex=0a count=3 every=50'
check 'a stalled read is told' says 'RX Transfer stalled uid=101' /tmp/watch.log
check '... and the packets after it arrive' endsWith 0 "$background"
tell 'fault out stall once'
check 'a stalled write is repeated' exits 0 member 'panelctl send --type 9 --hex 99 --repeat 20 2> /tmp/stall.log'
check '... and told' grep -q 'TX Transfer stalled uid=101' /tmp/stall.log
check '... and every record reaches the panel' counts 20 'record type 9, 1 byte: 99$' "$eventLog"
check 'the simulated panel saw no violation' detach

attach --panels 2
check 'the kernel finds two panels' says 'panel 1: found' "$simulatorLog"
udevadm settle --timeout=30
as member 'panelctl list' > /tmp/list.log 2>&1
cat > /tmp/expected.log << EOF
UID   BUS-PORT   LIMIT  DESCRIPTION
0101  1-1         8192  Simulated panel
0102  1-2         8192  Simulated panel
EOF
check 'list: two panels, by their ports' diff /tmp/expected.log /tmp/list.log
as member 'panelctl send --panel 0102 --type 5 --hex 0102'
check 'a record for the second reaches it' counts 1 'panel 1: record type 5, 2 bytes: 01 02$' "$eventLog"
check '... and it alone' counts 0 'panel 0: record type 5' "$eventLog"
tell 'unplug 0'
onlyTheSecond() {
  as member 'panelctl list' > /tmp/list.log 2> /dev/null
  [ "$(grep -c Simulated /tmp/list.log)" -eq 1 ] && grep -q '^0102  1-2' /tmp/list.log
}
check 'the second stays when the first is unplugged' await onlyTheSecond
check 'the simulated panels saw no violation' detach
check 'no node is left' await noNode
