#!/usr/bin/env bash
# The built app in a real window under Xvfb: it starts and paints the login
# screen; a second launch with a "quillmoss://oauth/callback?…" link signs the
# running app in and exits; the main window paints. Screenshots of each step
# are kept in OUT_DIR.
#
#   smoke.sh BIN_DIR SOURCE_DIR OUT_DIR
set -euo pipefail

bin_dir=$1 source_dir=$2 out_dir=$3
mkdir -p "$out_dir"
work=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*" >&2
    echo "--- app log ---" >&2
    tail -n 40 "$work/app.log" >&2 || true
    exit 1
}

# wait_for SECONDS COMMAND...: polls until COMMAND succeeds.
wait_for() {
    local seconds=$1
    shift
    local deadline=$((SECONDS + seconds))
    until "$@"; do
        [ $SECONDS -lt $deadline ] || return 1
        sleep 0.2
    done
}

# An image that is one flat colour means nothing was painted.
painted() {
    local deviation
    deviation=$(convert "$1" -colorspace Gray -format '%[fx:standard_deviation]' info:)
    awk -v d="$deviation" 'BEGIN { exit !(d > 0.02) }'
}

export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_DATA_HOME=$work/home/.local/share
export XDG_STATE_HOME=$work/home/.local/state XDG_CACHE_HOME=$work/home/.cache
export XDG_RUNTIME_DIR=$work/runtime
mkdir -p "$HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
unset QT_QPA_PLATFORM

node "$source_dir/local-backend/bin/quillmoss-local-backend" --listen 127.0.0.1:0 \
    --db "$work/backend.db" --seed-demo >"$work/backend.out" 2>"$work/backend.log" &
pids+=($!)
wait_for 20 grep -q 'listening on' "$work/backend.out" || fail "the local backend did not start"
backend=$(sed -n 's/.*listening on \(http[^ ]*\).*/\1/p' "$work/backend.out" | head -n1)

export QUILLMOSS_BACKEND_URL=$backend QUILLMOSS_WEB_URL=$backend
# No model host: the app must come up without its speech model.
export QUILLMOSS_MODEL_BASE_URL=http://127.0.0.1:9/

"$bin_dir/quillmoss-app" >"$work/app.log" 2>&1 &
app=$!
pids+=($app)
wait_for 30 grep -q 'AuthenticationView appeared' "$work/app.log" || fail "no login screen"
wait_for 10 xdotool search --sync --onlyvisible --name '^Quillmoss$' >/dev/null ||
    fail "no window titled Quillmoss"
if ! compgen -G '/dev/dri/renderD*' >/dev/null; then
    grep -q 'No GPU found: drawing with the software renderer' "$work/app.log" ||
        fail "without a GPU the app did not choose the software renderer"
fi
sleep 1
import -window root "$out_dir/login.png"
painted "$out_dir/login.png" || fail "the login screen was not painted"

redirect=$(curl -s -o /dev/null -w '%{redirect_url}' \
    --data-urlencode provider=google --data-urlencode 'name=Demo Seller' \
    --data-urlencode email=demo@quillmoss.local "$backend/login")
case $redirect in quillmoss://oauth/callback\?*) ;; *) fail "no sign-in redirect from the web login" ;; esac

started=$SECONDS
timeout 20 "$bin_dir/quillmoss-app" "$redirect" >"$work/second.log" 2>&1 ||
    fail "the second launch did not exit cleanly: $(cat "$work/second.log")"
[ $((SECONDS - started)) -lt 10 ] || fail "the second launch took too long"
grep -q 'already running' "$work/second.log" || fail "the second launch did not hand over its link"
kill -0 "$app" || fail "the running app went away"

wait_for 30 grep -q 'Showing main app for user: demo@quillmoss.local' "$work/app.log" ||
    fail "the link did not sign the running app in"
sleep 1.5
import -window root "$out_dir/main.png"
painted "$out_dir/main.png" || fail "the main window was not painted"
cmp -s "$out_dir/login.png" "$out_dir/main.png" && fail "the window did not change after sign-in"

# The session ending (SIGTERM) closes the window as the user would: a clean
# exit that remembers where the window was.
kill "$app"
status=0
wait "$app" || status=$?
[ $status -eq 0 ] || fail "the app did not end cleanly on SIGTERM (status $status)"
grep -q '"mainWindowGeometry"' "$XDG_CONFIG_HOME/quillmoss/settings.json" ||
    fail "the window's place was not remembered"
echo "app smoke: login and main window painted; screenshots in $out_dir"
