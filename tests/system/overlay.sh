#!/bin/bash
# A shell in a tree that looks like this machine's own; all changes go to memory and end with it.
# Started in name spaces of its own (unshare --mount --pid --net --fork --kill-child).
#
#   overlay.sh FOLDER TOOLS HOMES
#
# FOLDER: where to mount; TOOLS: a folder, seen as /tools; HOMES: an image, mounted at /home. A second
# such tree, to be broken, is seen as /next.
set -euo pipefail
folder=$1 tools=$2 homes=$3
mount --make-rprivate /
mount -t tmpfs changes "$folder"
overlay() { # name: at that place in the folder
    mkdir "$folder/$1" "$folder/$1.upper" "$folder/$1.inner"
    mount -t overlay -o "lowerdir=/,upperdir=$folder/$1.upper,workdir=$folder/$1.inner" overlay "$folder/$1"
}
overlay root
overlay next
root=$folder/root
mkdir -p "$root/tools" "$root/next"
mount --bind "$folder/next" "$root/next"
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mount -t tmpfs run "$root/run"
mount -t tmpfs tmp "$root/tmp"
mount -o loop "$homes" "$root/home"
mount --bind "$tools" "$root/tools"
cd /
exec chroot "$root" /bin/bash --noediting --norc
