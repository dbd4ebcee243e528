# What the kernel has to say since its USB modules are in. Sourced.

dmesg | sed '1,/guest: modules are in/d' > /tmp/dmesg.log
grep -E 'WARNING|BUG|Oops|[Cc]all trace|Unable to handle|hung task|Internal error' /tmp/dmesg.log > /tmp/complaints.log
check 'the kernel has seen the panels' grep -q 'idVendor=dead, idProduct=beef' /tmp/dmesg.log
check 'the kernel has no complaint' diff /dev/null /tmp/complaints.log
