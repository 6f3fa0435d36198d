#!/usr/bin/env bash
# Pictures of Thornquill Upload for the docs: the main window after a real drop with a few
# rows, and the preferences window, both as the app draws them on an X server (Xvfb).
#
#   scripts/screenshots.sh
#
# Writes docs/screenshots/main-window.png and docs/screenshots/preferences-window.png.
# The drop goes to an FTP server on 127.0.0.1:21 in a private network namespace, with
# settings in a temporary config folder. The app runs as
#   thornquill-upload --drop --show --linger MS --screenshot FILE --preferences-screenshot FILE
# (--show: the window is shown during the drop; --linger: it stays MS milliseconds after the
# last session has ended; the pictures are the windows' own renderings, QWidget::grab()).
# Run as root, or as a user who may sudo. Environment: VELMAR_BUILD_DIR (default build/).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${VELMAR_BUILD_DIR:-$root/build}
app=$build/app/thornquill-upload
shots=$root/docs/screenshots
# shellcheck source=netns_ftp_server.sh
source "$root/scripts/netns_ftp_server.sh"

if [[ -z ${TQ_IN_NETNS:-} ]]; then
  bash "$root/scripts/setup.sh"
  cmake -S "$root" -B "$build" -G Ninja >/dev/null
  cmake --build "$build" --target thornquill-upload
  tq_reexec_in_netns "${BASH_SOURCE[0]}" || true
  if [[ $(id -u) -ne 0 ]] && command -v sudo >/dev/null; then
    exec sudo env TQ_IN_NETNS=1 VELMAR_BUILD_DIR="$build" unshare -n bash "${BASH_SOURCE[0]}"
  fi
  echo "screenshots.sh: cannot make a private network namespace (unshare -n needs root)" >&2
  exit 1
fi

# ---- inside the private network namespace
tq_reexec_in_netns "${BASH_SOURCE[0]}"
command -v xvfb-run >/dev/null || { echo "screenshots.sh: xvfb-run is missing (scripts/setup.sh)" >&2; exit 1; }
work=$(mktemp -d /tmp/thornquill-shots.XXXXXX)
cleanup() {
  tq_stop_server
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM
chmod 755 "$work"
user=thornquill$$ password=shot-$RANDOM$RANDOM
mkdir -p "$work/server/incoming" "$work/local/Project Notes/drafts" "$shots"

# A few items, so that the list shows several rows.
printf 'minutes\n' >"$work/local/Project Notes/meeting.txt"
printf 'draft\n' >"$work/local/Project Notes/drafts/chapter 1.txt"
head -c 180000 /dev/urandom >"$work/local/photo.jpg"
head -c 2200000 /dev/urandom >"$work/local/presentation.pdf"
printf 'todo\n' >"$work/local/todo list.txt"

tq_start_server "$work/server" "$user" "$password"
config=$work/config
tq_write_settings "$config" 127.0.0.1 /incoming "$user" "$password"

rm -f "$shots/main-window.png" "$shots/preferences-window.png"
set +e
mkdir -m 700 "$work/runtime"
XDG_CONFIG_HOME=$config XDG_RUNTIME_DIR=$work/runtime QT_QPA_PLATFORM=xcb \
  xvfb-run -a -s "-screen 0 1024x768x24" \
  "$app" --drop --show --linger 800 \
  --screenshot "$shots/main-window.png" --preferences-screenshot "$shots/preferences-window.png" \
  "$work/local/Project Notes" "$work/local/photo.jpg" "$work/local/presentation.pdf" \
  "$work/local/todo list.txt" >"$work/rows.txt"
status=$?
set -e
awk -F'\t' '$1 == "row" { last[$2] = $3 } END { for (id in last) printf "row %s: %s\n", id, last[id] }' \
  "$work/rows.txt" | sort
if [[ $status -ne 0 || ! -s $shots/main-window.png || ! -s $shots/preferences-window.png ]]; then
  echo "screenshots.sh: the app ended with status $status" >&2
  exit 1
fi
ls -l "$shots/main-window.png" "$shots/preferences-window.png"
