#!/bin/sh
# wine-run.sh [program arguments...] - runs a Windows program under Wine: headless, quiet, without a
# crash debugger. Without a program it only makes Wine ready.
#
# Always true: the prefix lies in the build folder and never is the user's own; its Windows version
# is set here and not left to Wine's default; one server a prefix, which ends by itself when no
# program has run for five minutes. Server and services start with all standard handles away from
# the caller's: they would keep its standard error open, and CTest would wait for it in vain.
# Several callers may come at once: one makes Wine ready, the others wait for it.
#
# Addresses are not randomised, where the system lets a process choose that: the kernel would place
# the heap of Wine's loader anywhere in a gigabyte, in one start of some ten thousand on 0x7FFE0000,
# where Wine needs the data that processes share, and that program would end at once.
#
# OSSE_WINEPREFIX names another prefix, OSSE_DLLOVERRIDES adds to Wine's module overrides.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
WINEPREFIX=${OSSE_WINEPREFIX:-$root/build/wineprefix}
WINEDEBUG=${WINEDEBUG:--all}
WINEDLLOVERRIDES="mscoree,mshtml,winedbg.exe,winemenubuilder.exe=${OSSE_DLLOVERRIDES:+;$OSSE_DLLOVERRIDES}"
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
unset DISPLAY WAYLAND_DISPLAY

fixedAddresses=
if setarch -R true 2> /dev/null; then fixedAddresses='setarch -R'; fi

created="$WINEPREFIX.created"
warm="$WINEPREFIX.warm"

isWarm() { [ -e "$warm" ] && wineserver -k0 2> /dev/null; }

# A prefix whose creation was interrupted is not mended but made anew. The server is stopped before
# the prefix counts as created: only then are the registry's files written.
create() {
  rm -rf "$WINEPREFIX" &&
    $fixedAddresses wine wineboot &&
    $fixedAddresses wine winecfg -v win7 &&
    { wineserver -k || :; } &&
    wineserver -w &&
    : > "$created"
}

makeWarm() {
  rm -f "$warm"
  { [ -e "$created" ] || create; } &&
    wineserver -p300 &&
    $fixedAddresses wine wineboot &&
    : > "$warm"
}

if ! isWarm; then
  mkdir -p "$(dirname "$WINEPREFIX")"
  if ! (
    flock 9
    isWarm || makeWarm 9>&-
  ) 9> "$WINEPREFIX.lock" < /dev/null > "$WINEPREFIX.log" 2>&1; then
    echo "wine-run.sh: Wine did not start; $WINEPREFIX.log tells more" >&2
    exit 1
  fi
fi

[ $# -eq 0 ] || exec $fixedAddresses wine "$@"
