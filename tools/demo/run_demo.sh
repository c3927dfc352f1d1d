#!/usr/bin/env bash
# The whole cycle on this machine, with no outside service: a local collector,
# a host that records a session and its events, the uploader that sends them,
# then a descriptor query, an installer download and the collector's
# dashboard (a screenshot of it lands in BUILD_DIR/dashboard-demo.png). With
# --keep the collector is left running at the end, for a person to open the
# dashboard.
#   run_demo.sh BUILD_DIR [--keep]
set -euo pipefail
build="$(cd "${1:?usage: run_demo.sh BUILD_DIR [--keep]}" && pwd)"
keep=0
[ "${2:-}" = --keep ] && keep=1
bin="$build/tools"
collector="$bin/collector/information_collector"
uploader="$bin/uploader/information_uploader"
recorder="$bin/demo/information_demo_recorder"
[ -z "${DISPLAY:-}" ] && export QT_QPA_PLATFORM=offscreen

work="$(mktemp -d "${TMPDIR:-/tmp}/information_demo.XXXXXX")"
collector_pid=""
finish() {
  [ -n "$collector_pid" ] && kill -INT "$collector_pid" 2>/dev/null && wait "$collector_pid" 2>/dev/null
  rm -rf "$work"
}
trap finish EXIT
trap 'exit 130' INT TERM

step() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
indent() { sed 's/^/   /'; }

step "1. A local stand-in for the web service"
mkdir -p "$work/service/software/demo-scanner-suite" "$work/service/files" "$work/host/res"
head -c $((24 * 1024 * 1024)) /dev/urandom > "$work/service/files/demo-setup.exe"
# The descriptor names the installer with its size and SHA-256, so that a host
# can check what it downloaded before it runs it.
cat > "$work/service/software/demo-scanner-suite/interface.json" <<JSON
{"software": "demo-scanner-suite", "version": "1.5.0",
 "installer": {"file": "demo-setup.exe", "notes": "Faster meshing.",
               "size": $(stat -c %s "$work/service/files/demo-setup.exe"),
               "sha256": "$(sha256sum "$work/service/files/demo-setup.exe" | cut -d' ' -f1)"}}
JSON
"$collector" --port 0 --database "$work/service/collector.sqlite" \
  --upload-dir "$work/service/uploads" --software-dir "$work/service/software" \
  --files-dir "$work/service/files" > "$work/service/collector.log" 2>&1 &
collector_pid=$!
for _ in $(seq 100); do
  grep -q "listening on" "$work/service/collector.log" && break
  sleep 0.1
done
service="$(grep -o 'https\?://127\.0\.0\.1:[0-9]*' "$work/service/collector.log" | head -n1)"
[ -n "$service" ] || { cat "$work/service/collector.log"; echo "the collector did not start" >&2; exit 1; }
echo "information_collector listens on $service (database: collector.sqlite)"
echo "its dashboard: $service/"

# The descriptor and file-upload addresses are compiled into the library;
# the uploader takes the local ones on its command line.
uploader_run() { "$uploader" --workdir "$work/host" --cdn-url "$service" --file-url "$service/up" "$@"; }

step "2. The host's configuration: res/system.ini and url_config.ini"
cat > "$work/host/res/system.ini" <<INI
[General]
enable=1
time_intval=60
test=0
connect_time=5
remain=30
INI
printf '[General]\nupload_url=%s/dtta\n' "$service" > "$work/host/url_config.ini"
(cd "$work/host" && cat res/system.ini url_config.ini) | indent

step "3. A host records a session and one event of each kind"
(cd "$work/host" && "$recorder" 2> "$work/host/recorder.log") | indent

step "4. Records become due once they are older than the uploader's start"
echo "   waiting 4 seconds ..."
sleep 4
uploader_run status | indent

step "5. information_uploader sends what is due"
uploader_run upload | indent
echo "   left in keploinfo/: $(ls "$work/host/keploinfo" | wc -l) file(s)"

step "6. What the service stored"
if command -v sqlite3 >/dev/null 2>&1; then
  sqlite3 -header -column "$work/service/collector.sqlite" \
    "SELECT id, type, app_id, length(body) AS bytes FROM information ORDER BY id;" | indent
  echo "   first record, as the service received it (abridged):"
  sqlite3 "$work/service/collector.sqlite" \
    "SELECT body FROM information WHERE type = 'usage' LIMIT 1;" | head -n 12 | indent
fi

step "7. The software descriptor, from the CDN address"
uploader_run descriptor demo-scanner-suite > "$work/host/descriptor.json"
indent < "$work/host/descriptor.json"
# The installer's size and hash, as the descriptor gives them.
field() { grep -o "\"$1\": *\"\\?[0-9a-f]*" "$work/host/descriptor.json" | grep -o '[0-9a-f]*$'; }
installer_size="$(field size)"
installer_sha256="$(field sha256)"

step "8. A feedback attachment goes up as a file"
printf 'a picture of the scanned vase\n' > "$work/host/vase.png"
echo "   stored as file id $(uploader_run send-file "$work/host/vase.png" 2>/dev/null)"

step "9. Downloading the installer, checked against the descriptor"
mkdir -p "$work/host/downloads"
echo "   size $installer_size bytes, SHA-256 $installer_sha256"
uploader_run download "$service/files/demo-setup.exe" \
  "$work/host/downloads/demo-setup.exe" --size "$installer_size" --sha256 "$installer_sha256"
echo "   a tampered copy is refused and leaves the installer in place:"
cp "$work/service/files/demo-setup.exe" "$work/service/files/tampered-setup.exe"
printf 'X' | dd of="$work/service/files/tampered-setup.exe" bs=1 seek=1000 conv=notrunc status=none
if uploader_run download "$service/files/tampered-setup.exe" \
  "$work/host/downloads/demo-setup.exe" --size "$installer_size" --sha256 "$installer_sha256" 2>&1 | indent; then
  echo "   the tampered installer was accepted" >&2
  exit 1
fi
if cmp -s "$work/service/files/demo-setup.exe" "$work/host/downloads/demo-setup.exe"; then
  echo "   the downloaded installer matches the served one byte for byte"
else
  echo "   the downloaded installer differs from the served one" >&2
  exit 1
fi

step "10. The dashboard: $service/"
# Debian's headless Chromium, kept off the network it would otherwise try.
if browser="$(command -v chromium-headless-shell)"; then
  "$browser" --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync \
    --user-data-dir="$work/browser" --hide-scrollbars --window-size=1400,2150 \
    --virtual-time-budget=4000 --screenshot="$build/dashboard-demo.png" "$service/" \
    > "$work/browser.log" 2>&1 && echo "   a screenshot of it: $build/dashboard-demo.png" ||
    { echo "   the screenshot failed:"; tail -n 5 "$work/browser.log" | indent; }
else
  echo "   (no screenshot: chromium-headless-shell is not installed)"
fi

if [ $keep = 1 ]; then
  trap - EXIT
  echo
  echo "Demo finished. The collector keeps running: open $service/ in a browser."
  echo "It stores into $work/service; stop it with: kill -INT $collector_pid"
  exit 0
fi

step "11. Stopping the service"
kill -INT "$collector_pid"
wait "$collector_pid" || true
collector_pid=""
echo "   requests the collector saw:"
grep -E ' (GET|POST) ' "$work/service/collector.log" | indent
echo
echo "Demo finished."
