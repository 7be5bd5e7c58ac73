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

# The Wine server and its system processes (services, device drivers, explorer) are started
# here, detached from this program's output. Started by the program itself they would inherit
# its stderr and keep it open after the program ends, so whoever reads that pipe would wait for
# the server to shut down; and the server dumps its object table to its output when a
# pseudo-terminal it holds hangs up. The server stays 30 s after its last program (instead of
# 3 s), so the runs of a test suite find it warm and start within a tenth of a second.
(
  flock 9
  if wineserver -p30 </dev/null >/dev/null 2>&1 9>&-; then
    # A new server: start the system processes with a program that does nothing. They must not
    # inherit the lock either, or it would stay taken for the server's lifetime.
    wine cmd.exe /c exit </dev/null >/dev/null 2>&1 9>&- || true
  fi
) 9>"$WINEPREFIX/.pelmo-server.lock"

exec wine "$@"
