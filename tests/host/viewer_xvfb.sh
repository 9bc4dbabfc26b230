#!/bin/sh
# printprep view in a real window: Xvfb on a free display, the viewer driven through the window's
# own input by xdotool (hover, click on a part, move away), its own screenshots (F12) checked for
# the selected part's glow, and the session it recorded replayed to the same picture.
#   viewer_xvfb.sh PRINTPREP VIEWER_CHECK KEEP_LOADED_LIBRARY WORK_FOLDER
# Exit status 77 (ctest: skipped) only when no X server can be started.
set -u
PRINTPREP=$1
CHECK=$2
KEEP=$3
WORK=$4
rm -rf "$WORK"
mkdir -p "$WORK"
# LeakSanitizer's dynamic-TLS tracking off, as ./run test has it: the OpenGL driver's TLS blocks can
# crash the leak check at exit otherwise; leaks are still found through the threads' own TLS.
case "${LSAN_OPTIONS:-}" in
*intercept_tls_get_addr*) ;;
*) export LSAN_OPTIONS="${LSAN_OPTIONS:+$LSAN_OPTIONS:}intercept_tls_get_addr=0" ;;
esac
fail() {
  echo "FAIL: $*"
  exit 1
}
command -v Xvfb >/dev/null 2>&1 || { echo "SKIP: Xvfb is not installed"; exit 77; }
command -v xdotool >/dev/null 2>&1 || fail "xdotool is not installed (./run deps installs it)"

# Two of the demo's models, and where the first one shows in a 256 x 256 view, from replay's report.
"$PRINTPREP" demo --output "$WORK/models" --frames "$WORK/demo-frames" >"$WORK/demo.out" 2>&1 ||
  fail "demo could not write its models: $(cat "$WORK/demo.out")"
M1="$WORK/models/bracket.stl"
M2="$WORK/models/open_box.obj"
printf '{"size": [256, 256], "printer": [100, 100, 100], "models": ["%s", "%s"], "events": []}\n' "$M1" "$M2" \
  >"$WORK/layout.json"
"$PRINTPREP" replay "$WORK/layout.json" -o "$WORK/layout" >"$WORK/layout.out" 2>&1 ||
  fail "replay of the layout: $(cat "$WORK/layout.out")"
LINE=$(grep -E '^  0 .* middle at pixel' "$WORK/layout.out")
PX=$(echo "$LINE" | sed -E 's/.*middle at pixel \((-?[0-9]+), (-?[0-9]+)\).*/\1/')
PY=$(echo "$LINE" | sed -E 's/.*middle at pixel \((-?[0-9]+), (-?[0-9]+)\).*/\2/')
[ -n "$PX" ] && [ -n "$PY" ] || fail "no pixel for part 0 in: $(cat "$WORK/layout.out")"
# Window coordinates are y down.
WX=$PX
WY=$((255 - PY))

VIEWER=""
XVFB=""
cleanup() {
  [ -n "$VIEWER" ] && kill "$VIEWER" 2>/dev/null
  [ -n "$XVFB" ] && kill "$XVFB" 2>/dev/null
  wait 2>/dev/null
}
trap cleanup EXIT

# A display nobody uses; another test may take one at the same moment, so a server that dies is
# followed by the next number.
for n in $(seq 90 130); do
  [ -e "/tmp/.X$n-lock" ] || [ -e "/tmp/.X11-unix/X$n" ] && continue
  Xvfb ":$n" -screen 0 640x480x24 -nolisten tcp >"$WORK/xvfb.log" 2>&1 &
  XVFB=$!
  export DISPLAY=":$n"
  for i in $(seq 100); do
    kill -0 "$XVFB" 2>/dev/null || break
    xdotool getmouselocation >/dev/null 2>&1 && break 2
    sleep 0.1
  done
  kill "$XVFB" 2>/dev/null
  XVFB=""
done
[ -n "$XVFB" ] || { echo "SKIP: Xvfb did not start: $(cat "$WORK/xvfb.log" 2>/dev/null)"; exit 77; }

# Libraries stay loaded in the viewer (see keep_loaded.cpp); a sanitized build needs its runtime first.
PRELOAD=$KEEP
ASAN=$(ldd "$PRINTPREP" | awk '/libasan/ { print $3 }')
[ -n "$ASAN" ] && PRELOAD="$ASAN $KEEP"
LD_PRELOAD="$PRELOAD" "$PRINTPREP" view "$M1" "$M2" --printer 100x100x100 --size 256x256 \
  --screenshot "$WORK/shot.png" --record "$WORK/session.json" --exit-after 120 >"$WORK/view.out" 2>&1 &
VIEWER=$!
WID=$(timeout 60 xdotool search --sync --onlyvisible --name '^printprep view$' | head -n 1)
[ -n "$WID" ] || fail "no viewer window: $(cat "$WORK/view.out")"
xdotool windowfocus --sync "$WID" || fail "cannot focus the viewer's window"

# F12 makes the viewer write its frame; waits for it and keeps a copy under $1.png.
shoot() {
  before=$(grep -c 'screenshot written' "$WORK/view.out")
  xdotool key F12
  for i in $(seq 300); do
    [ "$(grep -c 'screenshot written' "$WORK/view.out")" -gt "$before" ] && { cp "$WORK/shot.png" "$WORK/$1.png"; return 0; }
    kill -0 "$VIEWER" 2>/dev/null || fail "the viewer ended: $(cat "$WORK/view.out")"
    sleep 0.1
  done
  fail "no screenshot: $(cat "$WORK/view.out")"
}

xdotool mousemove --window "$WID" 5 5
sleep 0.5
shoot before
# Hover over the part, click it, leave it: only the selection's glow remains.
xdotool mousemove --window "$WID" "$WX" "$WY"
sleep 0.5
xdotool click 1
sleep 0.5
xdotool mousemove --window "$WID" 5 5
sleep 0.3
# A key the tools ignore: in the recorded session it makes replay write a frame here.
xdotool key F1
sleep 0.3
shoot after
xdotool key ctrl+q
for i in $(seq 300); do
  kill -0 "$VIEWER" 2>/dev/null || break
  sleep 0.1
done
kill -0 "$VIEWER" 2>/dev/null && fail "the viewer did not close on Ctrl+Q"
wait "$VIEWER"
STATUS=$?
VIEWER=""
cat "$WORK/view.out"
[ "$STATUS" = 0 ] || fail "the viewer exited with status $STATUS"
grep -q '^Frame time: ' "$WORK/view.out" || fail "no frame times printed"
grep -q '^Session of [0-9]* events written' "$WORK/view.out" || fail "no session written"

echo "glow around the clicked part at ($PX, $PY):"
"$CHECK" glow "$WORK/before.png" "$WORK/after.png" "$PX" "$PY" || fail "no glow of the selected part"

# The recorded session, replayed off-screen, ends in the same picture with the same selection.
"$PRINTPREP" replay "$WORK/session.json" -o "$WORK/replayed" >"$WORK/replay.out" 2>&1 ||
  fail "replay of the recorded session: $(cat "$WORK/replay.out")"
cat "$WORK/replay.out"
grep -q "^Selection: $M1 (part 0)\$" "$WORK/replay.out" || fail "the replay did not select the clicked part"
LAST=$(ls "$WORK/replayed" | sort | tail -n 1)
echo "replayed $LAST against the window's frame:"
"$CHECK" same "$WORK/replayed/$LAST" "$WORK/after.png" || fail "the replayed frame differs from the window's"
echo "PASS"
