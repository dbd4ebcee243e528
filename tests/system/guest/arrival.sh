# Arrival and departure by netlink and udev; who may open a panel. Sourced.

inBackground /tmp/watch.log 'panelctl watch --duration 600'
watch=$background
check 'the tool waits for a panel' says 'waiting for one' /tmp/watch.log
attach --panels 1
check 'a panel plugged in while the tool watches arrives' says '0101  arrived  at 1-1' /tmp/watch.log
check '... and is open, once' holds 1 "$watch"
tell unplug
check '... and leaves when it is unplugged' says '0101  left' /tmp/watch.log
check '... and is not held open' holds 0 "$watch"
tell plug
check '... and arrives again' says '0101  arrived  at 1-1' /tmp/watch.log 2
check '... and is open, once' holds 1 "$watch"
check 'the watching tool ends in order' endsInOrder "$watch" /tmp/watch.log

udevadm settle --timeout=30
ls -l "$(nodes)" > /tmp/node.log
check 'its node belongs to root and plugdev, and to no one else' grep -q '^crw-rw---- .* root  *plugdev ' /tmp/node.log
check 'a user in plugdev opens it' exits 0 member 'panelctl list'
check 'a user who is not in plugdev is told so' exits 1 stranger 'panelctl list > /tmp/stranger.log 2>&1'
check '... with the reason' grep -qi 'permission\|not allowed\|access' /tmp/stranger.log

as member 'panelctl list' > /tmp/list.log 2>&1
cat > /tmp/expected.log << EOF
UID   BUS-PORT   LIMIT  DESCRIPTION
0101  1-1         8192  Simulated panel
EOF
check 'list: as on the virtual bus' diff /tmp/expected.log /tmp/list.log
as member 'panelctl info' > /tmp/info.log 2>&1
check 'info: what the panel says of itself' grep -q '^uid  *0101$' /tmp/info.log
check '... and its packet limit' grep -q '^packet limit  *8192 bytes' /tmp/info.log

check 'a command at the control socket is carried out' panelsim tell unplug
check '... and the panel leaves' await noNode
check '... one that cannot be is refused' exits 1 root 'panelsim tell unplug 2> /tmp/tell.log'
check '... with the reason' has '^panelsim: panel 0: is not plugged$' /tmp/tell.log
socket=$(panelsim tell --list | cut -d ' ' -f 1)
check '... and nobody else can give one' exits 125 stranger "panelsim tell --to $socket plug 2> /tmp/stranger.log"
check '... with the reason' has 'Permission denied$' /tmp/stranger.log
check 'the simulated panel saw no violation' detach
check 'no node is left' await noNode
