# The first console starts the screen; without one it stays a console that says what it can do.
if [ "$(tty)" = /dev/tty1 ] && ! grep -q morvane.text=1 /proc/cmdline; then
    startx >/tmp/startx.log 2>&1
    echo "The screen did not start; see /tmp/startx.log."
fi
cat <<'TEXT'

  Morvane recovery medium. Disks are read-only until you choose a target.

    sudo morvane-live-target list      installed systems
    sudo morvane-target list           disks that can take recovered files
    sudo morvane-target mount DEVICE   make one of them writable
    startx                             start the screen again

TEXT
if command -v morvane-cli >/dev/null; then
    echo "    morvane-cli recover list           disks and partitions to scan"
    echo
fi
