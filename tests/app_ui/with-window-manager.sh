#!/usr/bin/env bash
# Runs COMMAND on the current X display (xvfb-run's) under openbox, a real
# window manager, so that stacking, stay-on-top, workspaces and moves are a
# window manager's as on a desktop. The window manager stops with COMMAND.
#
#   with-window-manager.sh COMMAND...
set -euo pipefail

openbox --sm-disable >/dev/null 2>&1 &
wm=$!
trap 'kill $wm 2>/dev/null || true; wait $wm 2>/dev/null || true' EXIT
# Ready once it names itself on the root window.
for _ in $(seq 100); do
    xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && break
    sleep 0.1
done
QT_QPA_PLATFORM=xcb "$@"
