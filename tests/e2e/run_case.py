#!/usr/bin/env python3
"""Runs one end-to-end case of netwarden and compares what it printed with what the case expects.

A case is a folder:
  args              the command-line arguments, one per line (absent or empty: none)
  program           optional; the program to run: netwarden (the default) or
                    netwarden-gated-test, the test driver built beside it that runs the handlers
                    of the commands the dispatcher refuses (everything else is the same)
  layout            optional; where things are put under the case's temporary root, one per line
                    (folder names are bytes: they need not be UTF-8):
                      exe DIR               the program goes into DIR (default: bin)
                      lib NAME DIR [MODE]   a built library goes into DIR, with octal MODE
                      lib-unsigned NAME DIR the library as built, without a signature (Wine only)
                      lib-tampered NAME DIR the signed library with one byte changed (Wine only)
                      cwd DIR               the working directory (default: work)
                      mkdir DIR             an empty folder
                    without a layout, the program and both libraries go into bin and the run
                    happens in work
  host.json         optional host state (NETWARDEN_HOST)
  scenario.json     optional core scenario (KVX_SIM_STATE); the run gets its own copy
  stdout            the exact text expected on standard output (see "Console bytes"), or
  stdout.shared     the name of a file under e2e/shared/ that holds them
  status            the expected exit status as the shell sees it (0-255)
  debug.log         optional; the exact debugger output expected
  before            optional; the arguments (one per line) of a run made first, in the same
                    tree and environment, that must exit with 0 (its output is not compared)
  scenario.after.json
                    optional; the scenario the core must have saved by the end: compared as
                    JSON with the run's copy of scenario.json or, for a case without one, with
                    the state file the core keeps beside itself ("null": no such file)
  host.after.json   optional; the host state the emulated host must have written back by the
                    end: compared as JSON with the run's copy of host.json (Linux only)
  *.xml             optional; documents for the import commands, copied into the working
                    directory of the run (the arguments name them by their file name)
In host.json and scenario.json, {ROOT} stands for the temporary root as a Windows-form path
written for JSON; in stdout and debug.log it stands for the same path as plain text, and
{NATIVE_ROOT} for the root as the operating system writes it, and {EXE} for the program's file
name. In stdout, {POINTER} stands for the 16 upper-case hexadecimal digits of an address the
program prints, which differ from run to run.

Console bytes: the program writes one byte per character, as the C runtime does under its
default locale (U+0000 to U+00FF; a '?' for anything else), so its standard output is read as
Latin-1 and compared with the expected files, which are UTF-8 text like every other file here:
an expected "\u00e9" matches the byte 0xE9.

Given several case folders, the runner runs them in turn, says "passed", "skipped" or
"FAILED" with each name, and fails when one failed (77 when every one was skipped).

A case whose folder name starts with "wine-", or whose layout uses lib-unsigned or lib-tampered,
only means something with real signatures: on Linux it is skipped (exit code 77).

With --wine, the case runs against the Windows build under Wine instead (see docs/windows.md):
netwarden.exe (or the "program" with ".exe"), the libraries from the signed copies
tests/wine/prepare.sh made, the root as Z:\\<root>, standard output with "\\r\\n" for every
"\\n", the debugger output read from Wine's warn+seh channel on standard error, host.json's
"registry" written into the shared prefix for the length of the run, and its "clock" passed in
a host file of its own (NETWARDEN_HOST). Cases that depend on what only the emulated host can
be told (other host.json fields, file modes, folder names that hold a backslash) are skipped
(exit code 77).

The environment of the run holds only PATH and the variables named above. A debugger output
that reports a leaked core object fails the case unless debug.log expects it.
"""
import argparse
import difflib
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

LIBRARIES = ("kvxfwctl.dll", "kvxhida.dll")
PROGRAMS = ("netwarden", "netwarden-gated-test")
SKIP = 77
# Layout kinds that choose which copy of a library to place; plain "lib" is the signed one on Wine.
LIBRARY_VARIANTS = {"lib": "signed", "lib-unsigned": "unsigned", "lib-tampered": "tampered"}
WINE = "/usr/lib/wine/wine64"


def windows_form(path):
    return path.replace("/", "\\")


def read_text(path, default=None, errors="strict"):
    if not os.path.exists(path):
        return default
    with open(path, "rb") as f:
        return f.read().decode("utf-8", errors)


def parse_layout(case_dir):
    # Bytes that are not UTF-8 stay the bytes they are, so that a folder name can be one that is
    # not UTF-8.
    text = read_text(os.path.join(case_dir, "layout"), errors="surrogateescape")
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
        elif kind in LIBRARY_VARIANTS and len(words) == 3 and words[1] in LIBRARIES:
            layout.setdefault("variants", []).append((words[1], words[2], LIBRARY_VARIANTS[kind]))
        else:
            raise SystemExit(f"{case_dir}/layout:{number}: cannot read '{line}'")
    return layout


def read_program(case_dir):
    """The program a case runs, from its optional "program" file."""
    text = read_text(os.path.join(case_dir, "program"))
    program = text.strip() if text is not None else PROGRAMS[0]
    if program not in PROGRAMS:
        raise SystemExit(f"{case_dir}/program: '{program}' is none of {', '.join(PROGRAMS)}")
    return program


def same_output(expected, actual):
    """Equal text, where each {POINTER} of the expectation stands for one "%p" of the run."""
    pieces = expected.split("{POINTER}")
    if len(pieces) == 1:
        return expected == actual
    return re.fullmatch("[0-9A-F]{16}".join(map(re.escape, pieces)), actual) is not None


def show_difference(what, expected, actual):
    print(f"--- {what} differs", file=sys.stderr)
    diff = difflib.unified_diff(expected.splitlines(keepends=True),
                                actual.splitlines(keepends=True), "expected", "actual")
    sys.stderr.writelines(line if line.endswith("\n") else line + "\\ no newline\n"
                          for line in diff)


def read_args(path):
    """Arguments, one per line; an empty line is an empty argument."""
    args = read_text(path, "").split("\n")
    if args and args[-1] == "":
        args.pop()
    return args


def read_expectations(case_dir):
    """The case's arguments, expected stdout, expected status text and expected debug log."""
    args = read_args(os.path.join(case_dir, "args"))
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
    return args, expected_stdout, expected_status, read_text(os.path.join(case_dir, "debug.log"))


def core_state_file(root, layout):
    """Where the simulated core saves the built-in scenario: beside the core library."""
    folder = next((folder for name, folder, *_ in layout["libs"] if name == LIBRARIES[0]), None)
    return os.path.join(root, folder, "kvx-sim-state.json") if folder is not None else None


def check_scenario_after(case_dir, saved_file, json_root, failures,
                         expectation="scenario.after.json", what="saved scenario"):
    """Compares what the core (or the emulated host) saved with the case's expectation."""
    text = read_text(os.path.join(case_dir, expectation))
    if text is None:
        return
    expected = json.loads(text.replace("{ROOT}", json_root))
    actual_text = read_text(saved_file) if saved_file is not None else None
    actual = json.loads(actual_text) if actual_text is not None else None
    if actual != expected:
        show_difference(what, json.dumps(expected, indent=2) + "\n",
                        json.dumps(actual, indent=2) + "\n")
        failures.append(what)


def run_before(case_dir, command, cwd, env, failures):
    """Runs the case's preliminary command; a failure of it fails the case."""
    if not os.path.exists(os.path.join(case_dir, "before")):
        return
    args = read_args(os.path.join(case_dir, "before"))
    with tempfile.TemporaryFile() as out:
        # A file, not a pipe: a Wine helper that outlives the program must not hold the run up.
        result = subprocess.run(command + args, cwd=cwd, env=env, stdin=subprocess.DEVNULL,
                                stdout=out, stderr=subprocess.DEVNULL, timeout=60)
        out.seek(0)
        if result.returncode != 0:
            failures.append(f"the 'before' run exited with {result.returncode}:\n" +
                            out.read().decode("utf-8", "replace"))


def skip(case_dir, reason):
    print(f"{os.path.basename(case_dir)}: skipped: {reason}")
    return SKIP


def place(source, target, mode=None):
    """Puts a built file into a case's tree: a hard link where its mode stays the build's (the
    files are tens of megabytes and every case needs them), a copy where the case sets one."""
    if mode is None:
        try:
            os.link(source, target)
            return
        except OSError:
            pass  # another file system, or one without hard links
    shutil.copy2(source, target)
    if mode is not None:
        os.chmod(target, mode)


def copy_documents(case_dir, work_dir):
    """The case's XML documents, put where the run's relative paths find them."""
    for name in sorted(os.listdir(case_dir)):
        if name.endswith(".xml"):
            shutil.copyfile(os.path.join(case_dir, name), os.path.join(work_dir, name))


def run(build_dir, case_dir):
    layout = parse_layout(case_dir)
    if os.path.basename(case_dir).startswith("wine-") or layout.get("variants"):
        return skip(case_dir, "needs real signatures (Windows build under Wine)")
    args, expected_stdout, expected_status, expected_debug = read_expectations(case_dir)
    program = read_program(case_dir)

    root = tempfile.mkdtemp(prefix="nw-e2e-")
    try:
        os.chmod(root, 0o755)
        root_win = windows_form(root)
        json_root = json.dumps(root_win)[1:-1]
        for folder in [layout["exe"], layout["cwd"]] + layout["mkdirs"]:
            os.makedirs(os.path.join(root, folder), exist_ok=True)
        exe = os.path.join(root, layout["exe"], program)
        place(os.path.join(build_dir, program), exe)
        for name, folder, mode in layout["libs"]:
            os.makedirs(os.path.join(root, folder), exist_ok=True)
            place(os.path.join(build_dir, name), os.path.join(root, folder, name), mode)

        env = {"PATH": "/usr/bin:/bin", "NETWARDEN_DEBUG_LOG": os.path.join(root, "debug.log")}
        for source, variable in (("host.json", "NETWARDEN_HOST"),
                                 ("scenario.json", "KVX_SIM_STATE")):
            text = read_text(os.path.join(case_dir, source))
            if text is not None:
                target = os.path.join(root, source)
                with open(target, "w", encoding="utf-8") as f:
                    f.write(text.replace("{ROOT}", json_root))
                env[variable] = target

        copy_documents(case_dir, os.path.join(root, layout["cwd"]))
        failures = []
        run_before(case_dir, [exe], os.path.join(root, layout["cwd"]), env, failures)
        result = subprocess.run([exe] + args, cwd=os.path.join(root, layout["cwd"]), env=env,
                                stdin=subprocess.DEVNULL, capture_output=True, timeout=60)
        actual_stdout = result.stdout.decode("latin-1")
        debug = read_text(env["NETWARDEN_DEBUG_LOG"], "")

        def expand(text):
            return (text.replace("{NATIVE_ROOT}", root).replace("{ROOT}", root_win)
                    .replace("{EXE}", program))

        if not same_output(expand(expected_stdout), actual_stdout):
            show_difference("stdout", expand(expected_stdout), actual_stdout)
            failures.append("stdout")
        status = result.returncode & 0xFF
        if status != int(expected_status.strip()):
            failures.append(f"status {status}, expected {expected_status.strip()}")
        check_scenario_after(case_dir, env.get("KVX_SIM_STATE", core_state_file(root, layout)),
                             json_root, failures)
        check_scenario_after(case_dir, env.get("NETWARDEN_HOST"), json_root, failures,
                             "host.after.json", "host state written back")
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


# ---- Wine mode ------------------------------------------------------------------------------

# The host state the Wine runs can reproduce: registry values, and the scripted clock that the
# test driver takes from the host file. Everything else in host.json is something only the
# emulated host can be told.
WINE_HOST_KEYS = ("registry", "clock")
# What the emulated verifier answers for a missing file; Wine's answers 2 or 3 instead.
EMULATED_MISSING_FILE = "WinVerifyTrust failed with 80092003"
# Wine writes each debugger message once through this line of its warn+seh channel (and once more
# in a dispatch_exception line, which is left aside).
DEBUG_LINE = re.compile(r'^[0-9a-f]+:(?:[0-9a-f]+:)?warn:seh:OutputDebugStringA "(.*)"(\.\.\.)?$')
SIMPLE_ESCAPES = {"n": "\n", "r": "\r", "t": "\t", "\\": "\\", '"': '"', "'": "'",
                  "a": "\a", "b": "\b", "f": "\f", "v": "\v", "0": "\0"}


def wine_path(unix_path):
    return "Z:" + windows_form(unix_path)


def unescape_debug(text):
    """Undoes the C escaping Wine applies to a message it writes to its log."""
    out = bytearray()
    i = 0
    while i < len(text):
        c = text[i]
        if c != "\\" or i + 1 == len(text):
            out += c.encode("latin-1", errors="replace")
            i += 1
            continue
        n = text[i + 1]
        if n == "x":
            digits = re.match(r"[0-9a-fA-F]{1,2}", text[i + 2:])
            if digits:
                out.append(int(digits.group(0), 16))
                i += 2 + len(digits.group(0))
                continue
        elif n in "01234567" and re.match(r"[0-7]{2,3}", text[i + 1:]):
            digits = re.match(r"[0-7]{1,3}", text[i + 1:]).group(0)
            out.append(int(digits, 8) & 0xFF)
            i += 1 + len(digits)
            continue
        if n in SIMPLE_ESCAPES:
            out += SIMPLE_ESCAPES[n].encode("latin-1")
            i += 2
            continue
        out += b"\\"
        i += 1
    # Wine narrows the message to the ANSI code page, Windows-1252 with no locale set.
    return out.decode("cp1252", errors="replace")


def debugger_output(stderr_text):
    """The debugger messages, in order, from Wine's standard error; None when one was cut."""
    messages = []
    for line in stderr_text.splitlines():
        match = DEBUG_LINE.match(line)
        if match:
            if match.group(2):
                return None
            messages.append(unescape_debug(match.group(1)))
    return "".join(messages)


def registry_commands(registry):
    """(key, value name, reg type, data as reg.exe takes it) for each value of host.json."""
    commands = []
    for key, values in registry.items():
        for name, value in values.items():
            if isinstance(value, dict):
                kind, data = value["type"], value["data"]
            elif isinstance(value, bool):
                raise SystemExit(f"registry value {key}\\{name}: a boolean is not a registry value")
            elif isinstance(value, int):
                kind, data = "REG_DWORD", value
            else:
                kind, data = "REG_SZ", value
            if kind == "REG_BINARY":
                data = "".join(f"{b:02x}" for b in data)
            commands.append((key, name, kind, str(data)))
    return commands


def owned_key(key):
    """The key the run creates and removes: the first level below HKLM\\SOFTWARE (or below its
    32-bit view), so that a case never leaves a parent behind for the next one to find."""
    parts = key.split("\\")
    if len(parts) < 3 or parts[0].upper() not in ("HKLM", "HKEY_LOCAL_MACHINE") or \
            parts[1].upper() != "SOFTWARE":
        raise SystemExit(f"registry key {key}: the Wine runs only place keys under HKLM\\SOFTWARE")
    depth = 4 if parts[2].upper() == "WOW6432NODE" else 3
    if len(parts) < depth:
        raise SystemExit(f"registry key {key}: names no key of its own")
    return "\\".join(parts[:depth])


def wine_reg(env, *words):
    return subprocess.run([WINE, "reg"] + list(words) + ["/reg:64"], env=env,
                          stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, timeout=60).returncode


def run_wine(build_dir, prepared_dir, case_dir):
    layout = parse_layout(case_dir)
    if any(mode is not None for _, _, mode in layout["libs"]):
        return skip(case_dir, "a file mode only means something on the emulated host")
    folders = [layout["exe"], layout["cwd"]] + layout["mkdirs"] + \
        [folder for _, folder, *_ in layout["libs"] + layout.get("variants", [])]
    if any("\\" in folder for folder in folders):
        return skip(case_dir, "a folder name that holds a backslash cannot exist on Windows")
    host_text = read_text(os.path.join(case_dir, "host.json"))
    host = json.loads(host_text) if host_text is not None else {}
    others = sorted(set(host) - set(WINE_HOST_KEYS))
    if others:
        return skip(case_dir, "host.json sets what only the emulated host can be told: " +
                    ", ".join(others))
    if os.path.exists(os.path.join(case_dir, "host.after.json")):
        return skip(case_dir, "host.after.json describes the emulated host's file")
    args, expected_stdout, expected_status, expected_debug = read_expectations(case_dir)
    program = read_program(case_dir) + ".exe"
    if expected_debug is not None and EMULATED_MISSING_FILE in expected_debug:
        return skip(case_dir, "expects the emulated verifier's result for a missing file "
                    "(80092003); Wine's verifier answers 2 or 3")

    prefix = os.path.join(prepared_dir, "prefix")
    if not os.path.isfile(os.path.join(prefix, "system.reg")):
        raise SystemExit(f"no Wine prefix in {prepared_dir}: run tests/wine/prepare.sh first")
    root = tempfile.mkdtemp(prefix="nw-e2e-")
    env = {"PATH": "/usr/bin:/bin", "WINEPREFIX": prefix, "WINEDEBUG": "-all,warn+seh",
           "WINEDLLOVERRIDES": "mscoree,mshtml="}
    owned = []
    try:
        os.chmod(root, 0o755)
        root_win = wine_path(root)
        json_root = json.dumps(root_win)[1:-1]
        for folder in [layout["exe"], layout["cwd"]] + layout["mkdirs"]:
            os.makedirs(os.path.join(root, folder), exist_ok=True)
        exe = os.path.join(root, layout["exe"], program)
        place(os.path.join(build_dir, program), exe)
        libs = [(name, folder, "signed") for name, folder, _ in layout["libs"]]
        for name, folder, variant in libs + layout.get("variants", []):
            os.makedirs(os.path.join(root, folder), exist_ok=True)
            place(os.path.join(prepared_dir, variant, name), os.path.join(root, folder, name))

        text = read_text(os.path.join(case_dir, "scenario.json"))
        saved_file = core_state_file(root, layout)
        if text is not None:
            saved_file = os.path.join(root, "scenario.json")
            with open(saved_file, "w", encoding="utf-8") as f:
                f.write(text.replace("{ROOT}", json_root))
            env["KVX_SIM_STATE"] = wine_path(saved_file)

        if host_text is not None:
            host = json.loads(host_text.replace("{ROOT}", json_root))
            if "clock" in host:
                host_file = os.path.join(root, "host.json")
                with open(host_file, "w", encoding="utf-8") as f:
                    json.dump({"clock": host["clock"]}, f)
                env["NETWARDEN_HOST"] = wine_path(host_file)
        commands = registry_commands(host.get("registry", {}))
        owned = sorted({owned_key(key) for key, _, _, _ in commands})
        for key in owned:
            wine_reg(env, "delete", key, "/f")  # left over by a run that was killed
        for key, name, kind, data in commands:
            if wine_reg(env, "add", key, "/v", name, "/t", kind, "/d", data, "/f") != 0:
                return skip(case_dir, f"Wine's registry refused {key}\\{name} "
                            f"({len(data)} characters)")

        copy_documents(case_dir, os.path.join(root, layout["cwd"]))
        failures = []
        run_before(case_dir, [WINE, exe], os.path.join(root, layout["cwd"]), env, failures)
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            # Files rather than pipes: a Wine helper process that outlives the program must not
            # keep the run waiting for the end of its output.
            result = subprocess.run([WINE, exe] + args, cwd=os.path.join(root, layout["cwd"]),
                                    env=env, stdin=subprocess.DEVNULL, stdout=out, stderr=err,
                                    timeout=60)
            out.seek(0)
            err.seek(0)
            raw_stdout = out.read().decode("latin-1")
            stderr_text = err.read().decode("utf-8", errors="replace")

        def expand(text):
            text = re.sub(r"\{NATIVE_ROOT\}((?:/[^/\s:]+)*)",
                          lambda m: root_win + windows_form(m.group(1)), text)
            return text.replace("{ROOT}", root_win).replace("{EXE}", program)

        crlf = raw_stdout.count("\r\n")
        if raw_stdout.count("\n") != crlf or raw_stdout.count("\r") != crlf:
            failures.append("standard output does not end every line with exactly \\r\\n: " +
                            repr(raw_stdout))
        actual_stdout = raw_stdout.replace("\r\n", "\n")
        if not same_output(expand(expected_stdout), actual_stdout):
            show_difference("stdout", expand(expected_stdout), actual_stdout)
            failures.append("stdout")
        status = result.returncode & 0xFF
        if status != int(expected_status.strip()):
            failures.append(f"status {status}, expected {expected_status.strip()}")
        check_scenario_after(case_dir, saved_file, json_root, failures)
        debug = debugger_output(stderr_text)
        if debug is None:
            failures.append("Wine cut a debugger message short:\n" + stderr_text)
        elif expected_debug is not None:
            if debug != expand(expected_debug):
                show_difference("debug log", expand(expected_debug), debug)
                failures.append("debug log")
        elif " leak: " in debug:
            failures.append("the core reported leaked objects:\n" + debug)
        if failures:
            print(f"{os.path.basename(case_dir)} (Wine): " + "; ".join(failures), file=sys.stderr)
            return 1
        return 0
    finally:
        for key in owned:
            wine_reg(env, "delete", key, "/f")
        shutil.rmtree(root, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    where = parser.add_mutually_exclusive_group(required=True)
    where.add_argument("--build", help="build folder holding netwarden")
    where.add_argument("--wine", metavar="BUILD_WINDOWS",
                       help="Windows build folder holding netwarden.exe: run under Wine")
    parser.add_argument("--prepared", help="with --wine: the out dir of tests/wine/prepare.sh")
    parser.add_argument("cases", nargs="+", metavar="case", help="case folders, run in turn")
    options = parser.parse_args()
    if options.wine is not None and options.prepared is None:
        parser.error("--wine needs --prepared")
    # Several cases in one process: starting the interpreter costs more than most cases.
    statuses = []
    for case in options.cases:
        if options.wine is not None:
            status = run_wine(os.path.abspath(options.wine), os.path.abspath(options.prepared),
                              os.path.abspath(case))
        else:
            status = run(os.path.abspath(options.build), os.path.abspath(case))
        if len(options.cases) > 1:
            verdict = {0: "passed", SKIP: "skipped"}.get(status, "FAILED")
            print(f"{verdict}: {os.path.basename(os.path.normpath(case))}", flush=True)
        statuses.append(status)
    if any(status not in (0, SKIP) for status in statuses):
        return 1
    return SKIP if all(status == SKIP for status in statuses) else 0


if __name__ == "__main__":
    sys.exit(main())
