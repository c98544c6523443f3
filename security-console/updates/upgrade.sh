#!/bin/sh
# Installs a downloaded Zorvik Security Pack. Stand-in until the installer is written.
echo "upgrade.sh: installing a Security Pack is not available in this build" >&2
exit 1
