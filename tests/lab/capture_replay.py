#!/usr/bin/env python3
"""Capture, then replay: every read-only view of netwarden prints the same bytes and ends with
the same status against a capture as against the host it was taken from.

    capture_replay.py --build DIR SCENARIO   a scenario file, or "built-in" for none
    capture_replay.py --wine BUILD_WINDOWS --prepared DIR SCENARIO

A host the capture cannot connect to must make it fail with status 2 and write nothing. With
--wine, netwarden-lab.exe and netwarden.exe run under Wine against the simulated core signed by
the test authority (the prefix and the signed libraries tests/wine/prepare.sh made in DIR).
"""
import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

# What a capture must never call: a builder, a setter, Apply, or a change of the blacklist.
CHANGES = re.compile(r"call (IPolicyBuilder|IRuleBuilder|IAggregateMatchBuilder|IMatchBuilder|"
                     r"IGlobalConfigBuilder)::|::(GetPolicyBuilder|GetRuleBuilder|"
                     r"GetAggregateMatchBuilder|AddPolicy|DeletePolicy|GetGlobalConfigBuilder|"
                     r"SetLogOption|GetListBuilder|AppendList|DeleteList|SetNewList|AddIpV4Range|"
                     r"AddIpV6Range)\(")

VIEWS = (["-Summary"], ["-PolicyDisplay"], ["-PolicyDisplayXml"], ["-BlackListDisplay"],
         ["-BlackListDisplayXml"], ["-ConfigDisplay"], ["-IpConfig"], ["-statetable"],
         ["-eptable"], ["-proclist"])


WINE = "/usr/lib/wine/wine64"
PREFIX = None  # the Wine prefix, when the programs run under Wine


def wine_path(path):
    return "Z:" + path.replace("/", "\\")


def run(command, scenario, cwd, debug_log=None):
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin")}
    if debug_log is not None and PREFIX is None:
        env["NETWARDEN_DEBUG_LOG"] = debug_log
    if PREFIX is not None:
        env.update({"WINEPREFIX": PREFIX, "WINEDEBUG": "-all",
                    "WINEDLLOVERRIDES": "mscoree,mshtml="})
        # Absolute paths as the Windows programs name them.
        command = [WINE] + [wine_path(c) if c.startswith("/") else c for c in command]
        if scenario is not None:
            scenario = wine_path(scenario)
    if scenario is not None:
        env["KVX_SIM_STATE"] = scenario
    return subprocess.run(command, cwd=cwd, env=env, stdin=subprocess.DEVNULL,
                          capture_output=True, timeout=300)


def main():
    global PREFIX
    parser = argparse.ArgumentParser()
    where = parser.add_mutually_exclusive_group(required=True)
    where.add_argument("--build")
    where.add_argument("--wine", metavar="BUILD_WINDOWS")
    parser.add_argument("--prepared", help="with --wine: the out dir of tests/wine/prepare.sh")
    parser.add_argument("scenario")
    options = parser.parse_args()
    failures = []
    with tempfile.TemporaryDirectory() as work:
        if options.wine:
            # The programs beside the signed libraries, as an installed copy would be.
            PREFIX = os.path.join(os.path.abspath(options.prepared), "prefix")
            for name in ("netwarden.exe", "netwarden-lab.exe"):
                shutil.copy(os.path.join(options.wine, name), work)
            for name in ("kvxfwctl.dll", "kvxhida.dll"):
                shutil.copy(os.path.join(options.prepared, "signed", name), work)
            netwarden = os.path.join(work, "netwarden.exe")
            lab = os.path.join(work, "netwarden-lab.exe")
        else:
            netwarden = os.path.join(os.path.abspath(options.build), "netwarden")
            lab = os.path.join(os.path.abspath(options.build), "netwarden-lab")
        original = None
        if options.scenario != "built-in":
            original = os.path.join(work, "original.json")
            shutil.copyfile(options.scenario, original)
        captured = os.path.join(work, "captured.json")
        before = open(original, "rb").read() if original else None
        log = os.path.join(work, "debug.log")
        result = run([lab, "capture", "-o", captured], original, work, log)
        if original and open(original, "rb").read() != before:
            failures.append("the capture changed the host's scenario")
        calls = open(log, encoding="utf-8", errors="replace").read() if os.path.exists(log) else ""
        traced = PREFIX is None and before and json.loads(before).get("debug", {}).get("calls")
        if traced and " call " not in calls:
            failures.append("the scenario traces every call, but the capture's trace is empty")
        for line in calls.splitlines():
            if CHANGES.search(line):
                failures.append("the capture changed the host: " + line)
        reached = run([netwarden, "-ConfigDisplay"], original, work).returncode == 0
        if result.returncode != 0:
            if os.path.exists(captured):
                failures.append("a failed capture left a file behind")
            if result.returncode != 2 or not result.stderr:
                failures.append(f"a failed capture must say why and end with 2, not "
                                f"{result.returncode}: {result.stderr!r}")
            if reached:
                failures.append("the capture failed where netwarden reaches the core: " +
                                result.stderr.decode("utf-8", "replace"))
        else:
            processes = json.load(open(captured)).get("processes", {}).get("entries", [])
            pids = [str(p["pid"]) for p in processes[:1] + processes[-1:]] + ["4294967295"]
            for view in list(VIEWS) + [["-proc", pid] for pid in pids]:
                want = run([netwarden] + view, original, work)
                got = run([netwarden] + view, captured, work)
                if (want.stdout, want.returncode) != (got.stdout, got.returncode):
                    failures.append(f"{' '.join(view)}: status {want.returncode} -> "
                                    f"{got.returncode}, {len(want.stdout)} -> "
                                    f"{len(got.stdout)} bytes; first difference at byte "
                                    f"{next((i for i, (a, b) in enumerate(zip(want.stdout, got.stdout)) if a != b), min(len(want.stdout), len(got.stdout)))}")
    for failure in failures:
        print("FAILED:", failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
