#!/bin/sh
# Runs a Windows program under Wine in the prefix of tools/wine/wine-prefix.sh:
#   tools/wine/wine-run.sh build-win/PelmoWin.exe @3 -rfi
# Used as the cross build's CMAKE_CROSSCOMPILING_EMULATOR and as the program command of the
# end-to-end tests (PELMO_PROGRAM="tools/wine/wine-run.sh build-win/PelmoWin.exe").
# Wine's own diagnostics are silenced so that the program's output is all there is.
set -eu

here=$(dirname "$0")
WINEPREFIX=$("$here/wine-prefix.sh")
export WINEPREFIX WINEDEBUG=-all
# The server is started here, detached from this process's output: a server that a program
# started would inherit its stdout, and Wine's server dumps its object table there when a
# pseudo-terminal it holds hangs up. When a server already runs, this does nothing.
wineserver </dev/null >/dev/null 2>&1 || true
exec wine "$@"
