#!/usr/bin/env bash
# The collector started by the unit's ExecStart line on the packaged config,
# its data folder moved into a temporary one and its port 0: it stores a
# record there and serves its dashboard, Chart.js included. And every option
# of its command line has a key, set or commented, in that file. With
# "postgresql", in the cluster of with_postgresql.sh, the password in a
# passfile alone: none in the config, none in the collector's environment.
#   packaged_config_starts.sh SOURCE_DIR COLLECTOR [postgresql]
set -euo pipefail
packaging="$1/packaging/information-collector" collector="$2"
work="$(mktemp -d)"
pid=""
trap '[ -z "$pid" ] || kill "$pid" 2>/dev/null; rm -rf "$work"' EXIT

for key in $("$collector" --help | grep -o -- '--[a-z][a-z-]*' | sort -u | cut -c3-); do
  case "$key" in help | help-all | config) continue ;; esac
  grep -qE "^(# )?$key =" "$packaging/collector.conf" || { echo "collector.conf has no key $key"; exit 1; }
done

data="$work/var/lib/information-collector"
mkdir -p "$data"
sed -e "s|/var/lib/information-collector|$data|g" -e "s|^port = 8080$|port = 0|" \
  "$packaging/collector.conf" >"$work/collector.conf"
stored=(sqlite3 "$data/collector.sqlite")
if [ "${3:-}" = postgresql ]; then
  (umask 077 && echo "127.0.0.1:$PGPORT:*:$PGUSER:$PGPASSWORD" >"$work/pgpass")
  sed -i -e "s|^database = .*|database = postgresql://$PGUSER@127.0.0.1:$PGPORT/$PGDATABASE|" \
    -e "s|^# passfile =\$|passfile = $work/pgpass|" "$work/collector.conf"
  stored=(psql -Atc)
fi
line="$(sed -n 's/^ExecStart=//p' "$packaging/information-collector.service")"
line="${line/\/usr\/bin\/information_collector /$collector }"
line="${line/ \/etc\/information-collector\/collector.conf/ $work/collector.conf}"
# shellcheck disable=SC2086 # the line is split into words as systemd splits it
(cd "$data" && exec env -u PGPASSWORD $line) >"$work/log" 2>&1 &
pid=$!
for _ in $(seq 100); do
  grep -q "listening on" "$work/log" && break
  kill -0 "$pid" 2>/dev/null || break
  sleep 0.1
done
port="$(sed -n 's|^information_collector listening on http://127.0.0.1:\([0-9]*\)$|\1|p' "$work/log")"
[ -n "$port" ] || { cat "$work/log"; exit 1; }

# ask METHOD TARGET [BODY]: the answer's status line and body, through bash's own TCP.
ask() {
  local body="${3:-}"
  exec 3<>"/dev/tcp/127.0.0.1/$port"
  printf '%s %s HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Auth-AppID: %s\r\nContent-Type: %s\r\nConnection: close\r\n%s\r\n\r\n%s' \
    "$1" "$2" 3c1f9a7e55d04b28a6e2f0b9d4c87a13 application/json "Content-Length: ${#body}" "$body" >&3
  tr -d '\r' <&3 | sed -n '1p;/^$/,$p'
  exec 3<&-
}
body='{"packaged":"config"}'
answer="$(ask POST "/d?type=usage" "$body")"
grep -q '{"status":"success"}' <<<"$answer" || { echo "upload: $answer"; exit 1; }
[ "$("${stored[@]}" 'SELECT body FROM information')" = "$body" ]
chart="$(ask GET /dashboard/chart.min.js)"
if ! grep -q "^HTTP/1.1 200" <<<"$chart" || ! grep -q "Chart.js v" <<<"$chart"; then
  echo "Chart.js: ${chart:0:200}"
  exit 1
fi
kill -TERM "$pid"
wait "$pid"
pid=""
echo "the packaged config stored a record in $data and served the dashboard"
