# A firmware upgrade. Sourced.

mkdir -p /tmp/flash
attach --flash-dir /tmp/flash --chunk-time 0
# The library's passes come with what the panel sends.
tell 'emit type=20 size=8 count=1000000 every=20'
check 'flash: both images are written' exits 0 member 'panelctl flash --main /tests/main.bin --servo /tests/servo.bin --yes --timeout 120'
check 'the simulated panel saw no violation' detach
check "the main MCU's flash holds its image" cmp /tests/main.bin /tmp/flash/panel0-main.bin
check "the servo MCU's flash holds its image" cmp /tests/servo.bin /tmp/flash/panel0-servo.bin
