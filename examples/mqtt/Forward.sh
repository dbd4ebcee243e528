#!/bin/sh
# Forward.sh FROM TYPE TO: what the panels of host FROM send under a type, all panels of host TO are sent.
# Who has options for the broker puts them into ~/.config/mosquitto_sub and ~/.config/mosquitto_pub.
# In order, at most once: what comes while the broker or this is away is lost, and no answer is waited for.
set -eu
from=$1 type=$2 to=$3

# A line each: payloads of any bytes in hexadecimal digits.
mosquitto_sub -V 5 -q 1 -t "panel/1/$from/+/got/$type" -F %X | while read -r payload; do
  printf %s "$payload" | basenc --base16 -d | mosquitto_pub -V 5 -q 1 -t "panel/1/$to/all/do/send/$type" -s
done
