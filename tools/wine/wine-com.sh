#!/bin/sh
# Wires COM<n> of the Wine prefix to a Linux serial device, such as the simulator's pty:
#   tools/wine/wine-com.sh 3 /dev/pts/7      COM3 -> /dev/pts/7
#   tools/wine/wine-com.sh 3 --remove        COM3 is gone again
# Wine opens "\\.\COM<n>" through the link $WINEPREFIX/dosdevices/com<n>.
set -eu

if [ $# -ne 2 ]; then
  echo "usage: $0 <n> <device> | $0 <n> --remove" >&2
  exit 2
fi
number=$1
case "$number" in
  [1-9] | 1[0-9] | 2[0-9] | 3[0-2]) ;;
  *)
    echo "$0: COM number must be 1..32, not '$number'" >&2
    exit 2
    ;;
esac

here=$(dirname "$0")
WINEPREFIX=$("$here/wine-prefix.sh")
link="$WINEPREFIX/dosdevices/com$number"
if [ "$2" = "--remove" ]; then
  rm -f "$link"
else
  # The target is resolved so that a relative or symlinked name keeps working from dosdevices/.
  ln -sfn "$(readlink -f "$2")" "$link"
fi
