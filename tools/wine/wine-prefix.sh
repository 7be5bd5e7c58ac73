#!/bin/sh
# Makes sure a Wine prefix exists and is initialised, then prints its path.
#   tools/wine/wine-prefix.sh            the prefix named by $WINEPREFIX, or the default below
#   tools/wine/wine-prefix.sh --fresh    a new throwaway prefix under ${TMPDIR:-/tmp}
#   tools/wine/wine-prefix.sh --remove   shuts down and deletes the prefix named by $WINEPREFIX
# Initialising takes about 10 s; later calls reuse the prefix, so one test run pays it once.
# Parallel callers (ctest -j) wait for each other instead of initialising twice.
#
# Inside a network namespace of its own (ip netns exec) the caller gets a companion prefix,
# <prefix>-net<id>: Wine's server creates the sockets of its programs, so a server started in
# another namespace would put them on the wrong network. The companion has its own registry
# files (and so its own server) and shares drive_c and dosdevices (the COM links) with the prefix.
set -eu

export WINEDEBUG=-all
default_prefix="${TMPDIR:-/tmp}/pelmo-wine-$(id -u)"

case "${1:-}" in
  --fresh)
    WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/pelmo-wine.XXXXXX")
    ;;
  --remove)
    prefix="${WINEPREFIX:-$default_prefix}"
    for dir in "$prefix" "$prefix"-net*; do
      if [ -d "$dir" ]; then
        WINEPREFIX="$dir" wineserver -k 2>/dev/null || true
        rm -rf "$dir"
      fi
    done
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
    WINEDLLOVERRIDES="mscoree,mshtml=" wineboot -i >/dev/null 2>&1 9>&-
    wineserver -w 9>&-
  fi
  if [ ! -f "$WINEPREFIX/.pelmo-net" ]; then
    readlink /proc/self/ns/net >"$WINEPREFIX/.pelmo-net" 2>/dev/null || true
  fi
) 9>"$WINEPREFIX/.pelmo-init.lock"

# The network namespace the prefix was made in, and the caller's.
own_net=$(readlink /proc/self/ns/net 2>/dev/null || true)
home_net=$(cat "$WINEPREFIX/.pelmo-net")
if [ -n "$own_net" ] && [ -n "$home_net" ] && [ "$own_net" != "$home_net" ]; then
  base=$WINEPREFIX
  id=$(echo "$own_net" | tr -cd '0-9')
  WINEPREFIX="$base-net$id"
  mkdir -p "$WINEPREFIX"
  (
    flock 9
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      # The registry as the prefix has it now, and the stamp that tells Wine it is up to date.
      cp -p "$base/user.reg" "$base/userdef.reg" "$base/.update-timestamp" "$WINEPREFIX/"
      ln -sfn "$base/drive_c" "$WINEPREFIX/drive_c"
      ln -sfn "$base/dosdevices" "$WINEPREFIX/dosdevices"
      cp -p "$base/system.reg" "$WINEPREFIX/system.reg.new"
      mv "$WINEPREFIX/system.reg.new" "$WINEPREFIX/system.reg"
    fi
  ) 9>"$WINEPREFIX/.pelmo-init.lock"
fi

echo "$WINEPREFIX"
