#!/bin/sh
# Makes sure a Wine prefix exists and is initialised, then prints its path.
#   tools/wine/wine-prefix.sh            the prefix named by $WINEPREFIX, or the default below
#   tools/wine/wine-prefix.sh --fresh    a new throwaway prefix under ${TMPDIR:-/tmp}
#   tools/wine/wine-prefix.sh --remove   shuts down and deletes the prefix named by $WINEPREFIX
# Initialising takes about 10 s; later calls reuse the prefix, so one test run pays it once.
# Parallel callers (ctest -j) wait for each other instead of initialising twice.
set -eu

export WINEDEBUG=-all
default_prefix="${TMPDIR:-/tmp}/pelmo-wine-$(id -u)"

case "${1:-}" in
  --fresh)
    WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/pelmo-wine.XXXXXX")
    ;;
  --remove)
    prefix="${WINEPREFIX:-$default_prefix}"
    if [ -d "$prefix" ]; then
      WINEPREFIX="$prefix" wineserver -k 2>/dev/null || true
      rm -rf "$prefix"
    fi
    exit 0
    ;;
  "")
    WINEPREFIX="${WINEPREFIX:-$default_prefix}"
    ;;
  *)
    echo "usage: $0 [--fresh | --remove]" >&2
    exit 2
    ;;
esac
export WINEPREFIX

mkdir -p "$WINEPREFIX"
(
  flock 9
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    # -i initialises the prefix; no window, no Mono or Gecko prompts are needed for a console
    # program, so the installers are disabled.
    WINEDLLOVERRIDES="mscoree,mshtml=" wineboot -i >/dev/null 2>&1
    wineserver -w
  fi
) 9>"$WINEPREFIX/.pelmo-init.lock"

echo "$WINEPREFIX"
