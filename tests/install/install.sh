#!/usr/bin/env bash
# `cmake --install` into a throw-away prefix puts every piece in place, the
# desktop entry is valid and claims quillmoss:// links, and the installed
# local backend starts from there.
#
#   install.sh BUILD_DIR
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$prefix"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null

for file in bin/quillmoss-app bin/quillmoss bin/quillmoss-local-backend; do
    [ -x "$prefix/$file" ] || fail "$file is not installed as a program"
done
[ -f "$prefix/share/icons/hicolor/scalable/apps/quillmoss.svg" ] || fail "no icon"
desktop=$prefix/share/applications/quillmoss.desktop
[ -f "$desktop" ] || fail "no desktop entry"
desktop-file-validate "$desktop" || fail "the desktop entry is not valid"
grep -qx 'MimeType=x-scheme-handler/quillmoss;' "$desktop" || fail "the entry does not claim quillmoss:// links"
grep -q '^Exec=quillmoss-app %u$' "$desktop" || fail "the entry does not pass the link to the app"
[ ! -e "$prefix/share/quillmoss/local-backend/test" ] || fail "the backend's tests were installed"

# The installed backend runs from its new place (its packages came along).
"$prefix/bin/quillmoss-local-backend" --listen 127.0.0.1:0 --db "$prefix/backend.db" >"$prefix/out" 2>&1 &
for _ in $(seq 100); do grep -q 'listening on' "$prefix/out" && break; sleep 0.1; done
grep -q 'listening on' "$prefix/out" || fail "the installed backend did not start: $(cat "$prefix/out")"
"$prefix/bin/quillmoss" --help >/dev/null || fail "the installed command does not run"
echo "install: every piece in place under a fresh prefix"
