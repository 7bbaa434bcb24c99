#!/bin/sh
# Runs inside the new system: installs the two packages that lie in /packages.
set -eu
export DEBIAN_FRONTEND=noninteractive
apt-get install -y --no-install-recommends /packages/*.deb
rm -rf /packages
# Protection is for installed systems: here only the recovery service runs.
systemctl mask morvane-vaultd.service morvane-vaultd.socket morvane-hook-check.service
systemctl enable morvane-recoveryd.socket
adduser --quiet user morvane-recovery
apt-get clean
rm -rf /var/lib/apt/lists/* /var/cache/* /usr/share/doc/* /usr/share/man/* /usr/share/info/*
find /usr/share/locale -mindepth 1 -maxdepth 1 ! -name 'zh*' ! -name 'en*' ! -name locale.alias \
    -exec rm -rf {} +
