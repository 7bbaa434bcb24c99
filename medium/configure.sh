#!/bin/sh
# Runs inside the new system, once its packages are there.
set -eu
printf 'zh_CN.UTF-8 UTF-8\nen_US.UTF-8 UTF-8\n' >/etc/locale.gen
locale-gen >/dev/null
printf 'LANG=zh_CN.UTF-8\n' >/etc/default/locale
echo morvane-recovery >/etc/hostname
printf '127.0.0.1 localhost morvane-recovery\n' >/etc/hosts
printf 'allowed_users=anybody\nneeds_root_rights=auto\n' >/etc/X11/Xwrapper.config
getent group morvane-recovery >/dev/null || groupadd --system morvane-recovery
useradd --create-home --shell /bin/bash user
for group in sudo audio video input plugdev netdev morvane-recovery; do
    getent group "$group" >/dev/null && adduser --quiet user "$group"
done
passwd --quiet -d user
chmod 0440 /etc/sudoers.d/morvane-live
# The lower edge belongs to the bar with the tools; the program fills the rest, without a frame of
# the window manager.
sed -i 's|<bottom>0</bottom>|<bottom>48</bottom>|
    s|</applications>|<application class="*orvane*" type="normal"><decor>no</decor><maximized>yes</maximized></application></applications>|' \
    /etc/xdg/openbox/rc.xml
grep -q '<bottom>48</bottom>' /etc/xdg/openbox/rc.xml
# The search for the medium writes a list of network interfaces there.
mkdir -p /live_target /media/user /etc/network
chown user /media/user
# Starts when it is asked for.
systemctl disable NetworkManager NetworkManager-wait-online mdmonitor lvm2-monitor udisks2 \
    apt-daily.timer apt-daily-upgrade.timer 2>/dev/null || true
systemctl mask mdmonitor-oneshot.timer mdcheck_start.timer mdcheck_continue.timer \
    fstrim.timer e2scrub_all.timer e2scrub_reap.service man-db.timer 2>/dev/null || true
systemctl enable morvane-live-target.service
