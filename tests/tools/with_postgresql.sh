#!/usr/bin/env bash
# Runs a command beside a throwaway PostgreSQL cluster on 127.0.0.1, which
# pg_virtualenv (Debian's postgresql-common) makes, names in the PG*
# variables, and drops afterwards, also as root. Exits 77, which CTest reports
# as skipped, saying why, when no cluster can be had.
#   with_postgresql.sh COMMAND [ARGUMENT...]
set -uo pipefail
skip() {
  echo "SKIPPED: no throwaway PostgreSQL cluster: $*"
  exit 77
}
command -v pg_virtualenv >/dev/null ||
  skip "pg_virtualenv is missing (Debian packages postgresql and postgresql-common, which scripts/test.sh installs)"

started="$(mktemp)"
trap 'rm -f "$started"' EXIT
# A port that nothing listens on, below the range the system gives clients,
# so that clusters made at once do not clash; another one if it was taken
# meanwhile.
for _ in 1 2 3; do
  for _ in $(seq 20); do
    port=$((10000 + RANDOM % 20000))
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null || break
  done
  # The blank before the address makes pg_createcluster quote it as the text it is.
  PGPORT=$port pg_virtualenv -t -o "listen_addresses= 127.0.0.1" \
    bash -c 'echo yes >"$0"; export PGHOST=127.0.0.1; "$@"' "$started" "$@"
  status=$?
  [ -s "$started" ] && exit $status
done
skip "pg_virtualenv could not make a cluster (exit $status; its messages are above)"
