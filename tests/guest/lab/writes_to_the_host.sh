#!/bin/bash
# Runs in the guest, as the last of the scripts: tries whatever might write to the host's file, which
# is named in the environment of the boot. None of it may come through.
# shellcheck source=tests/guest/lib.sh
source tests/guest/lib.sh

VICTIM=$GUEST_LAB_TREE/build/guest/victim

given "a file of the host" [ "$(cat "$VICTIM")" = untouched ]
echo changed >"$VICTIM"
must a_write_goes_to_the_guests_own_memory [ "$(cat "$VICTIM")" = changed ]
rm "$VICTIM"
must a_file_is_removed_in_the_guest_alone not test -e "$VICTIM"

# Past the layer in memory, at the host's files themselves, which init has mounted in its own root.
INIT=/proc/1/root
must the_host_still_has_the_file [ "$(cat "$INIT/host$VICTIM")" = untouched ]
given "a mount that lets writes through to the host" \
  chroot "$INIT" /bin/busybox mount -o remount,rw /host
must the_host_refuses_a_write not eval "echo changed >'$INIT/host$VICTIM'"
must the_host_refuses_a_new_file not touch "$INIT/host$VICTIM.new"
must the_host_refuses_a_removal not rm -f "$INIT/host$VICTIM"
must the_host_refuses_a_change_of_mode not chmod 777 "$INIT/host$VICTIM"
must the_host_refuses_a_device not mknod "$INIT/host$VICTIM.device" b 254 0

# Through the folder that is shared: a link there must not lead out of it, as the host looks at it.
ln -s "$VICTIM" "$GUEST_LAB_RESULTS/link"
must the_monitor_is_out_of_reach not host screendump "$VICTIM"

finish
