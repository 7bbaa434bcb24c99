# The first console starts the screen; without one it stays a console that says what it can do.
if [ "$(tty)" = /dev/tty1 ] && [ -z "$MORVANE_CONSOLE" ]; then
    export MORVANE_CONSOLE=1
    if ! grep -q morvane.text=1 /proc/cmdline; then
        startx >/tmp/startx.log 2>&1
        echo "The screen did not start; see /tmp/startx.log."
    fi
    # The kernel's console has no Chinese letters, which the command line tool writes.
    if [ -w /dev/fb0 ] && command -v fbterm >/dev/null; then
        fbterm -- bash -l
    fi
    export LANG=en_US.UTF-8
fi
cat <<'TEXT'

  Morvane recovery medium. Disks are read-only until you choose a target.

    sudo morvane-live-target list      installed systems; mount DEVICE: look at another one
    sudo morvane-target list           disks that can take recovered files
    sudo morvane-target mount DEVICE   make one of them writable; prints the folder
    sudo morvane-mount-share smb://HOST/SHARE USER      or sftp://HOST/FOLDER

    morvane-cli recover list                   disks and partitions to scan
    morvane-cli recover scan DEVICE            find deleted files; --deep looks everywhere
    morvane-cli recover run SESSION FOLDER     recover what was found

    startx                             start the screen again

TEXT
