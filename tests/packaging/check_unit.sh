#!/usr/bin/env bash
# systemd-analyze verify on the collector's unit (its ExecStart pointed at the
# built collector), which must say nothing, and the unit's exposure as
# systemd-analyze security rates it offline: at most the README's 1.2.
#   check_unit.sh UNIT_FILE COLLECTOR
set -euo pipefail
unit="$1" collector="$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
copy="$work/information-collector.service"
sed "s|^ExecStart=/usr/bin/information_collector |ExecStart=$collector |" "$unit" >"$copy"
grep -q "^ExecStart=$collector " "$copy"

said="$(systemd-analyze verify "$copy" 2>&1)" || { echo "$said"; exit 1; }
[ -z "$said" ] || { echo "systemd-analyze verify: $said"; exit 1; }
# The threshold counts tenths of the figure shown.
systemd-analyze security --offline=true --threshold=12 "$copy" | tail -n 1
