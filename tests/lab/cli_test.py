#!/usr/bin/env python3
"""netwarden-lab as a user meets it: help, exit statuses, one-line errors, --json documents.

    cli_test.py --build DIR
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SCENARIO = os.path.join(HERE, "..", "..", "examples", "policy-jumps.json")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    lab = os.path.join(os.path.abspath(parser.parse_args().build), "netwarden-lab")
    failures = []

    def run(*args, status, out=None, err=None):
        result = subprocess.run([lab] + list(args), capture_output=True, text=True, timeout=60,
                                env={"PATH": "/usr/bin:/bin"})
        what = " ".join(args) or "(no arguments)"
        if result.returncode != status:
            failures.append(f"{what}: status {result.returncode}, expected {status}: "
                            f"{result.stderr.strip()}")
        if out is not None and out not in result.stdout:
            failures.append(f"{what}: {out!r} not in the output: {result.stdout[:300]!r}")
        if err is not None and (err not in result.stderr or result.stderr.count("\n") != 1):
            failures.append(f"{what}: expected one line with {err!r}, got {result.stderr!r}")
        return result

    with tempfile.TemporaryDirectory() as work:
        changed_path = os.path.join(work, "changed.json")
        scenario = json.load(open(SCENARIO))
        rule = scenario["policies"]["list"][0]["rules"][0]
        match = next(m for m in rule["matches"] if m["type"] == 7)
        match["terms"][0]["uint16"] = match["terms"][0].get("uint16", 0) + 1
        json.dump(scenario, open(changed_path, "w"))
        not_json = os.path.join(work, "notes.txt")
        open(not_json, "w").write("not a scenario\n")
        xml = os.path.join(work, "policies.xml")
        open(xml, "w").write("<policies></policies>\n")

        for sub in ("", "capture", "import", "diff", "find", "explain"):
            run(*([sub] if sub else []), "--help", status=0, out="Usage:")
        run(status=2, err="netwarden-lab: ")
        run("bogus", status=2, err="bogus")
        run("diff", SCENARIO, SCENARIO, status=0)
        named = f'"{rule["name"]}" of policy'
        result = run("diff", SCENARIO, changed_path, status=1, out=named)
        if ".uint16: " not in result.stdout:
            failures.append("diff does not name the changed term: " + result.stdout)
        run("diff", SCENARIO, not_json, status=2, err=not_json)
        run("find", xml, "port:80", status=2, err="an XML document")
        run("diff", SCENARIO, os.path.join(work, "missing.json"), status=2, err="missing.json")
        document = run("diff", "--json", SCENARIO, changed_path, status=1).stdout
        if json.loads(document)["equal"] is not False:
            failures.append("diff --json: " + document)
        run("find", SCENARIO, "port:70000", status=2, err="expected a port")
        run("find", SCENARIO, "port:1-65535", status=0, out=f'"{rule["name"]}"')
        json.loads(run("find", "--json", SCENARIO, "port:1-65535", status=0).stdout)["rules"]
        run("find", SCENARIO, "user:nobody-here", status=1)
        connection = ["--protocol", "tcp", "--local", "10.0.0.1:80", "--remote", "[::1]:5",
                      "--direction", "in"]
        run("explain", SCENARIO, *connection, status=0, out="decided")
        run("explain", SCENARIO, *connection[:-1], "sideways", status=2, err="expected in or out")
        verdicts = json.loads(run("explain", "--json", SCENARIO, *connection, status=0).stdout)
        if not verdicts["policies"] or "rules" not in verdicts["policies"][0]:
            failures.append("explain --json: " + json.dumps(verdicts)[:300])
        target = os.path.join(work, "no-such-folder", "capture.json")
        run("capture", "-o", target, status=2, err="no-such-folder")
        if os.path.exists(target):
            failures.append("a failed capture wrote " + target)

    for failure in failures:
        print("FAILED:", failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
