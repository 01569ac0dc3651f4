#!/bin/sh
# The lab's whole commands on a large host, with their wall time, CPU time and peak memory:
#   bench/lab_commands.sh [BUILD_DIR]      (default: build)
# The host is the 10,000-policy set (20 rules of 3 matches each) and 1,000,000 generated
# connections. capture reads it through the getters and writes it out in full; find and explain
# then load that capture (most of their time); diff loads two. Figures: docs/performance.md.
set -eu
build=$(cd "${1:-build}" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat >"$work/host.json" <<'JSON'
{
  "policies": {"generated": {"count": 10000, "rules": 20, "matches": 3, "seed": 1}},
  "connections": {"generate": {"count": 1000000, "seed": 1}}
}
JSON
measure() {
  what=$1
  shift
  /usr/bin/time -f "$what: %e s wall, %U s user, %S s system, %M KiB peak" "$@" >/dev/null
}
cd "$work"
KVX_SIM_STATE="$work/host.json" measure "capture" "$build/netwarden-lab" capture -o capture.json
ls -l capture.json | awk '{print "capture file: " $5 " bytes"}'
measure "find ip:10.1.2.3" "$build/netwarden-lab" find capture.json ip:10.1.2.3 || true
measure "explain" "$build/netwarden-lab" explain capture.json --protocol tcp \
  --local 10.0.0.1:49152 --remote 192.0.2.77:443 --direction out
measure "diff (equal)" "$build/netwarden-lab" diff capture.json capture.json
