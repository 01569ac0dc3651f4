#!/usr/bin/env python3
"""Runs one end-to-end case of netwarden and compares what it printed with what the case expects.

A case is a folder:
  args              the command-line arguments, one per line (absent or empty: none)
  layout            optional; where things are put under the case's temporary root, one per line:
                      exe DIR               the program goes into DIR (default: bin)
                      lib NAME DIR [MODE]   a built library goes into DIR, with octal MODE
                      cwd DIR               the working directory (default: work)
                      mkdir DIR             an empty folder
                    without a layout, the program and both libraries go into bin and the run
                    happens in work
  host.json         optional host state (NETWARDEN_HOST)
  scenario.json     optional core scenario (KVX_SIM_STATE); the run gets its own copy
  stdout            the exact bytes expected on standard output, or
  stdout.shared     the name of a file under e2e/shared/ that holds them
  status            the expected exit status as the shell sees it (0-255)
  debug.log         optional; the exact debugger output expected
In host.json and scenario.json, {ROOT} stands for the temporary root as a Windows-form path
written for JSON; in stdout and debug.log it stands for the same path as plain text, and
{NATIVE_ROOT} for the root as the operating system writes it.

The environment of the run holds only PATH and the variables named above. A debugger output
that reports a leaked core object fails the case unless debug.log expects it.
"""
import argparse
import difflib
import json
import os
import shutil
import subprocess
import sys
import tempfile

LIBRARIES = ("kvxfwctl.dll", "kvxhida.dll")


def windows_form(path):
    return path.replace("/", "\\")


def read_text(path, default=None):
    if not os.path.exists(path):
        return default
    with open(path, "rb") as f:
        return f.read().decode("utf-8")


def parse_layout(case_dir):
    text = read_text(os.path.join(case_dir, "layout"))
    layout = {"exe": "bin", "cwd": "work", "libs": [], "mkdirs": []}
    if text is None:
        layout["libs"] = [(name, "bin", None) for name in LIBRARIES]
        return layout
    for number, line in enumerate(text.splitlines(), 1):
        words = line.split()
        if not words or words[0].startswith("#"):
            continue
        kind = words[0]
        if kind in ("exe", "cwd", "mkdir") and len(words) == 2:
            if kind == "mkdir":
                layout["mkdirs"].append(words[1])
            else:
                layout[kind] = words[1]
        elif kind == "lib" and len(words) in (3, 4) and words[1] in LIBRARIES:
            mode = int(words[3], 8) if len(words) == 4 else None
            layout["libs"].append((words[1], words[2], mode))
        else:
            raise SystemExit(f"{case_dir}/layout:{number}: cannot read '{line}'")
    return layout


def show_difference(what, expected, actual):
    print(f"--- {what} differs", file=sys.stderr)
    diff = difflib.unified_diff(expected.splitlines(keepends=True),
                                actual.splitlines(keepends=True), "expected", "actual")
    sys.stderr.writelines(line if line.endswith("\n") else line + "\\ no newline\n"
                          for line in diff)


def run(build_dir, case_dir):
    layout = parse_layout(case_dir)
    args_text = read_text(os.path.join(case_dir, "args"), "")
    args = args_text.split("\n")
    if args and args[-1] == "":
        args.pop()
    expected_stdout = read_text(os.path.join(case_dir, "stdout"))
    shared = read_text(os.path.join(case_dir, "stdout.shared"))
    if expected_stdout is None and shared is not None:
        shared_file = os.path.join(os.path.dirname(os.path.abspath(__file__)), "shared",
                                   shared.strip())
        expected_stdout = read_text(shared_file)
        if expected_stdout is None:
            raise SystemExit(f"{case_dir}/stdout.shared: no file {shared_file}")
    expected_status = read_text(os.path.join(case_dir, "status"))
    if expected_stdout is None or expected_status is None:
        raise SystemExit(f"{case_dir}: a case needs 'stdout' and 'status'")
    expected_debug = read_text(os.path.join(case_dir, "debug.log"))

    root = tempfile.mkdtemp(prefix="nw-e2e-")
    try:
        os.chmod(root, 0o755)
        root_win = windows_form(root)
        json_root = json.dumps(root_win)[1:-1]
        for folder in [layout["exe"], layout["cwd"]] + layout["mkdirs"]:
            os.makedirs(os.path.join(root, folder), exist_ok=True)
        exe = os.path.join(root, layout["exe"], "netwarden")
        shutil.copy2(os.path.join(build_dir, "netwarden"), exe)
        for name, folder, mode in layout["libs"]:
            os.makedirs(os.path.join(root, folder), exist_ok=True)
            target = os.path.join(root, folder, name)
            shutil.copy2(os.path.join(build_dir, name), target)
            if mode is not None:
                os.chmod(target, mode)

        env = {"PATH": "/usr/bin:/bin", "NETWARDEN_DEBUG_LOG": os.path.join(root, "debug.log")}
        for source, variable in (("host.json", "NETWARDEN_HOST"),
                                 ("scenario.json", "KVX_SIM_STATE")):
            text = read_text(os.path.join(case_dir, source))
            if text is not None:
                target = os.path.join(root, source)
                with open(target, "w", encoding="utf-8") as f:
                    f.write(text.replace("{ROOT}", json_root))
                env[variable] = target

        result = subprocess.run([exe] + args, cwd=os.path.join(root, layout["cwd"]), env=env,
                                stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
        actual_stdout = result.stdout.decode("utf-8", errors="replace")
        debug = read_text(env["NETWARDEN_DEBUG_LOG"], "")

        def expand(text):
            return text.replace("{NATIVE_ROOT}", root).replace("{ROOT}", root_win)

        failures = []
        if actual_stdout != expand(expected_stdout):
            show_difference("stdout", expand(expected_stdout), actual_stdout)
            failures.append("stdout")
        status = result.returncode & 0xFF
        if status != int(expected_status.strip()):
            failures.append(f"status {status}, expected {expected_status.strip()}")
        if expected_debug is not None:
            if debug != expand(expected_debug):
                show_difference("debug log", expand(expected_debug), debug)
                failures.append("debug log")
        elif " leak: " in debug:
            failures.append("the core reported leaked objects:\n" + debug)
        if result.stderr:
            failures.append("stderr is not empty:\n" + result.stderr.decode("utf-8", "replace"))
        if failures:
            print(f"{os.path.basename(case_dir)}: " + "; ".join(failures), file=sys.stderr)
            return 1
        return 0
    finally:
        shutil.rmtree(root, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", required=True, help="build folder holding netwarden")
    parser.add_argument("case", help="the case folder")
    options = parser.parse_args()
    return run(os.path.abspath(options.build), os.path.abspath(options.case))


if __name__ == "__main__":
    sys.exit(main())
