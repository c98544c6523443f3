#!/bin/sh
# Installs a downloaded Zorvik Security Pack package and starts the new dashboard.
#
#     sh "<program dir>/scripts/upgrade.sh" "<package.deb>"
#
# The dashboard starts it detached and quits. The script
#   1. checks that the file is a Debian package of the dashboard for this machine
#      (dpkg-deb -f: Package "zorvik-dashboard", Architecture this one or "all"),
#   2. installs it as root with apt-get (dependencies resolved, configuration files the
#      user changed are kept) and removes the downloaded file when that worked,
#   3. waits (at most 30 s) for the old dashboard to end and starts the dashboard of
#      <program dir> for the user: the new one, or after a failed install the one still
#      installed, so the user is never left without it.
# What it does, and apt-get's output, goes to upgrade.log in the user log directory:
# $ZORVIK_LOG_DIR, else $XDG_STATE_HOME/zorvik, else ~/.local/state/zorvik.
#
# Environment:
#   ZORVIK_UPGRADE_ELEVATE  the command that runs the install as root; it is given the
#                           whole install command line as its arguments. Default: pkexec
#                           (its polkit agent asks for the password) in a desktop session
#                           where pkexec is installed; otherwise sudo (sudo -A when
#                           SUDO_ASKPASS names a password helper).
#
# Exit status: 0 installed, 1 the install failed, 2 nothing was installed because the
# file is missing or is not a package of the dashboard.

PACKAGE_NAME=zorvik-dashboard
PROGRAM_DIR=$(cd "$(dirname "$0")/.." && pwd)
DASHBOARD=$PROGRAM_DIR/zorvik-dashboard

if [ -n "$ZORVIK_LOG_DIR" ]; then
    LOG_DIR=$ZORVIK_LOG_DIR
elif [ -n "$XDG_STATE_HOME" ]; then
    LOG_DIR=$XDG_STATE_HOME/zorvik
else
    LOG_DIR=$HOME/.local/state/zorvik
fi
mkdir -p "$LOG_DIR" 2>/dev/null
LOG=$LOG_DIR/upgrade.log

# The dashboard's own line format: "<date> <time.ms> <LEVEL> <component>: <text>".
log() {
    level=$1
    shift
    printf '%s %s upgrade: %s\n' "$(date '+%Y-%m-%d %H:%M:%S.%3N')" "$level" "$*" >>"$LOG" 2>/dev/null
}

# True while a dashboard started from PROGRAM_DIR still runs for this user (other users'
# processes cannot be read). After the install its file shows as "(deleted)".
old_dashboard_running() {
    [ -n "$(find /proc/[0-9]*/exe -maxdepth 0 \( -lname "$DASHBOARD" -o -lname "$DASHBOARD (deleted)" \) \
        -print -quit 2>/dev/null)" ]
}

start_dashboard() {
    waited=0
    while old_dashboard_running && [ "$waited" -lt 300 ]; do
        sleep 0.1
        waited=$((waited + 1))
    done
    if [ ! -x "$DASHBOARD" ]; then
        log ERROR "No dashboard to start at $DASHBOARD"
        return
    fi
    log INFO "Starting $DASHBOARD"
    if command -v setsid >/dev/null 2>&1; then
        setsid "$DASHBOARD" </dev/null >/dev/null 2>&1 &
    else
        "$DASHBOARD" </dev/null >/dev/null 2>&1 &
    fi
}

# Refuses the file: logs why, starts the installed dashboard again, ends with 2.
refuse() {
    log ERROR "$*"
    start_dashboard
    exit 2
}

package=$1
log INFO "Upgrade with package \"$package\""
[ -n "$package" ] || refuse "No package given (usage: upgrade.sh <package.deb>)"
case $package in
/*) ;;
*) package=$PWD/$package ;;
esac
[ -f "$package" ] && [ -r "$package" ] || refuse "Cannot read the package $package"

name=$(dpkg-deb -f "$package" Package 2>>"$LOG") || refuse "$package is not a Debian package"
[ "$name" = "$PACKAGE_NAME" ] || refuse "$package holds \"$name\", not $PACKAGE_NAME"
version=$(dpkg-deb -f "$package" Version 2>>"$LOG")
arch=$(dpkg-deb -f "$package" Architecture 2>>"$LOG")
machine=$(dpkg --print-architecture 2>/dev/null)
[ "$arch" = all ] || [ "$arch" = "$machine" ] || refuse "$package is built for $arch, this machine is $machine"

if [ -n "$ZORVIK_UPGRADE_ELEVATE" ]; then
    elevate=$ZORVIK_UPGRADE_ELEVATE
elif { [ -n "$DISPLAY" ] || [ -n "$WAYLAND_DISPLAY" ]; } && command -v pkexec >/dev/null 2>&1; then
    elevate=pkexec
elif [ -n "$SUDO_ASKPASS" ]; then
    elevate="sudo -A"
else
    elevate=sudo
fi

log INFO "Installing $PACKAGE_NAME $version ($arch) with $elevate"
# shellcheck disable=SC2086 # the elevation command may be several words
$elevate env DEBIAN_FRONTEND=noninteractive apt-get install -y --reinstall \
    -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold \
    "$package" </dev/null >>"$LOG" 2>&1
status=$?
if [ "$status" -eq 0 ]; then
    log INFO "Installed $PACKAGE_NAME $version"
    rm -f "$package"
    result=0
else
    log ERROR "Installation failed with code $status; the package stays at $package"
    result=1
fi
start_dashboard
exit "$result"
