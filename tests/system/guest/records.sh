# Records in both directions. Sourced.

attach --panels 1
check 'send: 200 records are taken' exits 0 member 'panelctl send --type 5 --hex "01 02 03" --repeat 200'
check '... and reach the panel, each once' counts 200 'record type 5, 3 bytes: 01 02 03$' "$eventLog"

# 8,181 bytes of payload are a packet of 8,192, which a zero-length packet ends.
head -c 8181 /dev/zero > /tmp/payload
chmod 644 /tmp/payload
check 'send: the largest record is taken' exits 0 member 'panelctl send --type 6 --file /tmp/payload'
check '... and reaches the panel whole' counts 1 'record type 6, 8181 bytes' "$eventLog"
check '... and so does the record after it' exits 0 member 'panelctl send --type 7 --hex aabb'
check '... whole' counts 1 'record type 7, 2 bytes: aa bb$' "$eventLog"

inBackground /tmp/watch.log 'panelctl watch --count 131 --duration 600'
check 'watch: the panel is there' says arrived /tmp/watch.log
i=0
while [ $i -lt 30 ]; do
  i=$((i + 1))
  tell "$(printf 'emit type=20 hex=%02x' $i)"
done
tell 'emit type=21 size=64 count=100 every=2'
check 'watch: packets are handed over until the count is reached' endsWith 0 "$background"
sed -n 's/.*type 20  *1 bytes*  *//p' /tmp/watch.log | tr '\n' ' ' > /tmp/order.log
i=0
while [ $i -lt 30 ]; do
  i=$((i + 1))
  printf '%02x ' $i
done > /tmp/expected.log
check '... in the order in which the panel sent them' diff /tmp/expected.log /tmp/order.log
check '... and all of them' counts 100 'type 21  *64 bytes  00 01 02' /tmp/watch.log

# Incoming packets while records go out.
tell 'emit type=22 size=512 count=200 every=2'
check 'send: goes on while the panel streams' exits 0 member 'panelctl send --type 8 --hex 09 --repeat 300'
check '... and every record reaches it' counts 300 'record type 8, 1 byte: 09$' "$eventLog"
check 'the simulated panel saw no violation' detach
