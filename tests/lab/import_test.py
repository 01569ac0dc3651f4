#!/usr/bin/env python3
"""netwarden-lab import, and diff of policy documents: what netwarden writes comes back as a
scenario, what the document format cannot carry is noted where it stands, bad documents are
refused in one line and nothing is written.

    import_test.py --build DIR
"""
import argparse
import json
import os
import subprocess
import sys
import tempfile

POLICY = "1e1e1e1e-0000-4000-8000-000000000001"
PRODUCT = "2f2f2f2f-0000-4000-8000-000000000002"

# One policy holding each kind of value the document does not carry back whole.
LOSSES = {"policies": {"list": [{
    "uid": POLICY, "ppuid": PRODUCT, "name": "Losses", "type": 2, "defaultAction": 9,
    "rules": [
        {"name": "Redirect web", "action": 3,
         "redirect": {"address": "10.0.0.9", "port": 10080, "value": 7},
         "matches": [{"type": 8, "terms": [{"op": 0, "uint16": 80}]}]},
        {"name": "Vendor", "action": 1,
         "matches": [{"type": 5, "terms": [{"op": 0, "string": "Example Vendor"}]},
                     {"type": 2, "terms": [{"op": 0, "string": "C:\\Tools\\agent.exe"}]}]},
        {"name": "Carry on", "action": 8},
        {"name": "Heavy senders", "action": 7,
         "matches": [{"type": 24, "terms": [{"op": 2, "uint64": 3000000000}]}]},
        {"name": "Loopback", "action": 5,
         "matches": [{"type": 27, "terms": [{"op": 0, "string": "Loopback adapter"}]}]},
    ]}]}}

PLACE = f'policy 1 {{{POLICY}}} "Losses"'
EXPECTED_NOTES = [
    f"{PLACE}: default action FW_ACTION_JUMP: its target is not in the document; imported as "
    "FW_ACTION_BLOCK_PACKET",
    f'{PLACE}, default group, rule 1 "Redirect web": action FW_ACTION_REDIRECT: its port is not '
    "in the document (it is 10000 or more); imported as 10000",
    f'{PLACE}, default group, rule 2 "Vendor": match FW_MATCH_APP_VENDOR: the core takes no '
    "vendor matches; left out, so what holds it matches more",
    f'{PLACE}, default group, rule 4 "Heavy senders": action FW_ACTION_BLOCK_HOST: its length is '
    "not in the document; imported as FW_ACTION_BLOCK_PACKET",
    f'{PLACE}, default group, rule 4 "Heavy senders": match FW_MATCH_BYTES_SENT: 3000000000 is '
    "above 2147483647, which the tool's reader reads in its place",
    f'{PLACE}, default group, rule 5 "Loopback": match FW_MATCH_ADAPTER_DESCRIPTION: Error: '
    "invalid value for match type; left out, so what holds it matches more",
]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    build = os.path.abspath(parser.parse_args().build)
    netwarden = os.path.join(build, "netwarden")
    lab = os.path.join(build, "netwarden-lab")
    failures = []

    def run(command, scenario=None):
        env = {"PATH": "/usr/bin:/bin"}
        if scenario:
            env["KVX_SIM_STATE"] = scenario
        return subprocess.run(command, capture_output=True, text=True, timeout=120, env=env,
                              cwd=work)

    def document(view, scenario=None):
        result = run([netwarden, view], scenario)
        if result.returncode != 0:
            failures.append(f"netwarden {view}: status {result.returncode}")
        path = os.path.join(work, f"doc-{len(os.listdir(work))}.xml")
        open(path, "w").write(result.stdout)
        return path, result.stdout

    def refused(args, *what):
        target = os.path.join(work, "refused.json")
        result = run([lab, "import"] + args + ["-o", target])
        lines = result.stderr.splitlines()
        if result.returncode != 2 or len(lines) != 1 or any(w not in lines[0] for w in what):
            failures.append(f"import {args}: status {result.returncode}, expected one line with "
                            f"{what!r}: {result.stderr!r}")
        if os.path.exists(target):
            failures.append(f"import {args}: a refused import wrote its output")

    with tempfile.TemporaryDirectory() as work:
        # The built-in host: both documents read back to the same bytes.
        policies, policy_text = document("-PolicyDisplayXml")
        blacklist, blacklist_text = document("-BlackListDisplayXml")
        imported = os.path.join(work, "built-in.json")
        result = run([lab, "import", policies, "--blacklist", blacklist, "-o", imported])
        if result.returncode != 0 or result.stderr:
            failures.append(f"built-in import: {result.returncode} {result.stderr!r}")
        for view, text in (("-PolicyDisplayXml", policy_text),
                           ("-BlackListDisplayXml", blacklist_text)):
            if run([netwarden, view], imported).stdout != text:
                failures.append(f"{view} of the imported built-in host differs")

        # Every value the format does not carry back, noted where it stands.
        losses = os.path.join(work, "losses.json")
        json.dump(LOSSES, open(losses, "w"))
        lossy, _ = document("-PolicyDisplayXml", losses)
        imported = os.path.join(work, "losses-imported.json")
        result = run([lab, "import", lossy, "-o", imported])
        notes = [f"netwarden-lab: import: {lossy}: {note}" for note in EXPECTED_NOTES]
        if result.returncode != 0 or result.stderr.splitlines() != notes:
            failures.append(f"losses: status {result.returncode}, notes:\n{result.stderr}")
        scenario = json.load(open(imported))
        policy = scenario["policies"]["list"][0]
        rules = policy["rules"]
        checks = {
            "the host's point product": policy.get("ppuid") == PRODUCT,
            "the notes in the file": scenario.get("capture", {}).get("notes") ==
            [f"{lossy}: {note}" for note in EXPECTED_NOTES],
            "the redirect at the least port": rules[0].get("redirect", {}).get("port") == 10000,
            "the vendor match left out": [m["type"] for m in rules[1]["matches"]] == [2],
            "the continue kept": rules[2].get("action") == 8,
            "the block host as a block": rules[3].get("action") == 5,
            "the default action as a block": policy.get("defaultAction") == 5,
        }
        failures += [f"losses: {what}" for what, held in checks.items() if not held]

        # diff of documents: itself, one changed port, something that is not XML.
        changed = os.path.join(work, "changed.xml")
        open(changed, "w").write(policy_text.replace("<value>3389</value>", "<value>3390</value>",
                                                     1))
        not_xml = os.path.join(work, "notes.txt")
        open(not_xml, "w").write("not a document\n")
        for a, b, status, out in ((policies, policies, 0, None),
                                  (policies, changed, 1, ".uint16: 3389 -> 3390"),
                                  (policies, not_xml, 2, None)):
            result = run([lab, "diff", a, b])
            if result.returncode != status or (out and out not in result.stdout):
                failures.append(f"diff {os.path.basename(b)}: status {result.returncode}, "
                                f"expected {status}: {result.stdout[:300]!r} {result.stderr!r}")
        if "3389" not in policy_text:
            failures.append("the built-in policies have no port 3389 to change")

        # Bad documents: one line naming the file, the place and what was expected.
        bad = {
            "truncated.xml": ("<policies><policy><uid>", ": policy 1: not well-formed XML"),
            "stateful.xml": (policy_text.replace("<stateful>NO</stateful>",
                                                 "<stateful>MAYBE</stateful>", 1),
                             ": policy 1 {", "Error: invalid value for stateful option, valid "
                             "input is yes/no"),
        }
        for name, (text, *what) in bad.items():
            path = os.path.join(work, name)
            open(path, "w").write(text)
            refused([path], *(path + w if w.startswith(":") else w for w in what))
        refused([not_xml], "expected \"<\" at its start")
        refused([os.path.join(work, "missing.xml")], "missing.xml: cannot open")
        refused([blacklist], "a blacklist document, where policies were expected")
        refused([policies, "--blacklist", policies], "no blacklist in it")

    for failure in failures:
        print("FAILED:", failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
