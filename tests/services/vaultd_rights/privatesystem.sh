#!/bin/sh
# Runs a command in a mount and network name space with an /etc, /run and /home of its own, where the
# users alice (4001) and bob (4002) have the passwords secret-alice and secret-bob. For root.
set -eu
if [ "${MORVANE_PRIVATE_SYSTEM:-}" != 1 ]; then
    MORVANE_PRIVATE_SYSTEM=1 exec unshare -m -n -- "$0" "$@"
fi
mount --make-rprivate /
mount -t tmpfs none /mnt
cp -a /etc /mnt/etc
mount --bind /mnt/etc /etc
mount -t tmpfs none /run
mount -t tmpfs -o mode=755 none /home
rm -f /etc/ld.so.preload
for user in alice:4001 bob:4002; do
    name=${user%:*}
    id=${user#*:}
    echo "$name:x:$id:$id::/home/$name:/bin/sh" >>/etc/passwd
    echo "$name:x:$id:" >>/etc/group
    mkdir -m 700 "/home/$name"
    chown "$id:$id" "/home/$name"
done
cat >/etc/check-password <<'EOF'
#!/bin/sh
read -r password || true
[ "$password" = "secret-$PAM_USER" ]
EOF
chmod 755 /etc/check-password
cat >/etc/pam.d/morvane-vault <<'EOF'
auth required pam_exec.so expose_authtok quiet /etc/check-password
account required pam_permit.so
EOF
mkdir -m 1777 /run/tmp
export TMPDIR=/run/tmp
"$@"
