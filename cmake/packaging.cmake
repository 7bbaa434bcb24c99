# Filled in below the targets: install rules and the Debian package.
