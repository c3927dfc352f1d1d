#!/usr/bin/env bash
# Records per second into information_collector: on SQLite, and on PostgreSQL
# with one collector and with two sharing the database (fsync off, as
# pg_virtualenv makes its cluster, and on, as a server keeps its data). The
# client is curl, posting records of about 1 KB over kept-alive connections,
# 16 in flight to each collector. Every run is checked: all records stored.
# Runs by hand, beside a throwaway cluster (tests/tools/with_postgresql.sh):
#   bench/collector_postgresql.sh [BUILD_DIR] [RECORDS_PER_COLLECTOR]
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
build="$(realpath "${1:-$here/../build}")"
records="${2:-5000}"
if [ -z "${PGPORT:-}" ]; then
  exec bash "$here/../tests/tools/with_postgresql.sh" bash "${BASH_SOURCE[0]}" "$build" "$records"
fi
collector="$build/tools/collector/information_collector"
work="$(mktemp -d "$PWD/collector_postgresql-XXXXXX")"
pids=()
stop() {
  kill "${pids[@]}" 2>/dev/null || true
  wait "${pids[@]}" 2>/dev/null || true
  pids=()
}
trap 'stop; rm -rf "$work"' EXIT
app=3c1f9a7e55d04b28a6e2f0b9d4c87a13
printf '{"record":"%01000d"}' 0 >"$work/record.json"

# Starts a collector on DATABASE and prints its port.
start() {
  local log="$work/collector-${#pids[@]}.log"
  "$collector" --port 0 --database "$1" --upload-dir "$work/files" >"$log" 2>&1 &
  pids+=($!)
  for _ in $(seq 200); do
    grep -q 'listening on' "$log" && break
    sleep 0.05
  done
  sed -n 's|.*listening on http://127.0.0.1:\([0-9]*\).*|\1|p' "$log"
}

# A curl configuration posting the record `records` times to PORT.
config() {
  for i in $(seq "$records"); do
    [ "$i" = 1 ] || echo next
    printf 'url = "http://127.0.0.1:%s/dtta?type=usage"\ndata-binary = "@%s"\n' "$1" "$work/record.json"
    printf 'header = "X-Auth-AppID: %s"\nheader = "Content-Type: application/json"\n' "$app"
    echo 'output = "/dev/null"'
  done >"$work/curl-$1.config"
}

# Posts to each collector on PORTS at once; prints the seconds it took.
post() {
  local port started curls=()
  for port in "$@"; do config "$port"; done
  started=$(date +%s.%N)
  for port in "$@"; do
    curl -s -f -Z --parallel-max 16 -K "$work/curl-$port.config" >/dev/null 2>&1 &
    curls+=($!)
  done
  for port in "${curls[@]}"; do wait "$port" || echo "curl failed" >&2; done
  awk -v end="$(date +%s.%N)" -v start="$started" 'BEGIN { print end - start }' 
}

report() {  # DATABASE COLLECTORS SECONDS STORED
  local expected=$((records * $2))
  if [ "$4" != "$expected" ]; then
    printf '%-22s %10s  failed: %s of %s records stored\n' "$1" "$2" "$4" "$expected"
  else
    awk -v name="$1" -v n="$2" -v s="$3" -v all="$expected" \
      'BEGIN { printf "%-22s %10d %8.2f %10.0f %13.0f\n", name, n, s, all / s, all / s / n }' 
  fi
}

echo "$records records of $(wc -c <"$work/record.json") bytes per collector; PostgreSQL $(psql -Atc 'SHOW server_version')"
printf '%-22s %10s %8s %10s %13s\n' database collectors seconds records/s "per collector"
port=$(start "$work/collector.sqlite")
seconds=$(post "$port")
stop
report SQLite 1 "$seconds" "$(sqlite3 "$work/collector.sqlite" 'SELECT count(*) FROM information')"
for fsync in off on; do
  psql -qc "ALTER SYSTEM SET fsync = $fsync" -c 'SELECT pg_reload_conf()' >/dev/null
  for instances in 1 2; do
    database="bench_${fsync}_$instances"
    psql -qc "CREATE DATABASE $database"
    ports=()
    for _ in $(seq "$instances"); do ports+=("$(start "postgresql:///$database")"); done
    seconds=$(post "${ports[@]}")
    stop
    report "PostgreSQL, fsync $fsync" "$instances" "$seconds" \
      "$(psql -d "$database" -Atc 'SELECT count(*) FROM information')"
  done
done
