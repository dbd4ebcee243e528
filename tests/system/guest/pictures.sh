# Pictures: their PNG files are compared on the host. Sourced.

attach --panels 1 --lcd 0=144x168 --lcd 1=72x72 --lcd 2=72x36 --png /tmp/png
drawn=0
while read -r arguments; do
  check "draw $arguments" exits 0 member "panelctl draw /tests/$arguments"
  drawn=$((drawn + 1))
done < /tests/pictures
check 'the simulated panel saw no violation' detach
# The host reads these lines.
for file in /tmp/png/*.png; do
  echo "picture: $(basename "$file") $(sha256sum < "$file" | cut -d' ' -f1)"
done
