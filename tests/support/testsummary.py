#!/usr/bin/env python3
"""Sums up a test run for scripts/test.

Every test program writes its results as Qt Test XML into BUILD/test-results/<ctest name>.xml,
and ctest writes its own verdicts to BUILD/test-results/ctest.xml. This counts test functions,
each data row on its own, lists every skipped and failed one with its reason, and ends with the
line "N passed, N failed, N skipped". A test program that ctest failed without a failed function
in its XML (a crash, a time-out) counts as one failure; one whose initTestCase skipped counts
each of its functions as skipped.

Run as root, the functions that skip because they need an ordinary user (their reason starts with
"needs an ordinary user") are run once more as the user nobody, and that run's result counts.

Usage: testsummary.py BUILD_DIR. Exit status 1 when anything failed.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET
from pathlib import Path

ORDINARY_USER = "needs an ordinary user"
FIXTURES = {"initTestCase", "cleanupTestCase", "init", "cleanup"}


def read_qt_xml(path):
    """Returns (results, complete): results maps (function, data tag) to (verdict, reason) in
    order; complete is False when the file ends early (the program crashed or was ended)."""
    results = {}
    function = None
    try:
        for event, elem in ET.iterparse(path, events=("start", "end")):
            if event == "start" and elem.tag == "TestFunction":
                function = elem.get("name")
            elif event == "end" and elem.tag == "Incident" and function:
                kind = elem.get("type", "")
                tag = (elem.findtext("DataTag") or "").strip()
                reason = (elem.findtext("Description") or "").strip()
                where = elem.get("file") or ""
                if where and elem.get("line", "0") != "0":
                    where = f"{os.path.basename(where)}:{elem.get('line')}"
                    reason = f"{reason} ({where})" if reason else where
                key = (function, tag)
                verdict = {"pass": "pass", "xfail": "pass", "skip": "skip",
                           "fail": "fail", "xpass": "fail"}.get(kind)
                if verdict is None:
                    continue
                old = results.get(key)
                # A row that failed anywhere stays failed; a skip outranks the pass after it.
                rank = {"pass": 0, "skip": 1, "fail": 2}
                if old is None or rank[verdict] > rank[old[0]]:
                    results[key] = (verdict, reason)
            elif event == "end" and elem.tag == "TestFunction":
                function = None
        return results, True
    except (ET.ParseError, OSError):
        if function and not any(k[0] == function and v[0] == "fail" for k, v in results.items()):
            results[(function, "")] = ("fail", "the test program ended in the middle of it")
        return results, False


def ctest_verdicts(path):
    """ctest's own verdict per test program: name -> True when it passed."""
    verdicts = {}
    try:
        for case in ET.parse(path).getroot().iter("testcase"):
            failed = case.get("status") == "fail" or case.find("failure") is not None
            verdicts[case.get("name")] = not failed
    except (ET.ParseError, OSError):
        pass
    return verdicts


def function_names(program):
    """The test functions of a test program (its -functions list), or [] when it cannot tell."""
    try:
        proc = subprocess.run([str(program), "-functions"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, timeout=60, check=False,
                              env=dict(os.environ, QT_QPA_PLATFORM="offscreen"))
    except (OSError, subprocess.TimeoutExpired):
        return []
    lines = proc.stdout.decode(errors="replace").splitlines()
    return [line.strip()[:-2] for line in lines if line.strip().endswith("()")]


def run_as_nobody(program, function, source_dir):
    """Runs one test function as nobody in a fresh folder only nobody can write; returns its
    results, or None with a reason when that cannot be done."""
    if shutil.which("setpriv") is None:
        return None, "setpriv is missing"
    folder = tempfile.mkdtemp(prefix="velmora-nobody-")
    try:
        os.chown(folder, 65534, 65534)
        os.chmod(folder, 0o700)
        out = os.path.join(folder, "result.xml")
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": folder, "TMPDIR": folder,
               "QT_QPA_PLATFORM": "offscreen", "VELMORA_SOURCE_DIR": source_dir}
        proc = subprocess.run(
            ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
             str(program), function, "-o", out + ",xml"],
            env=env, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            timeout=300, check=False)
        results, _ = read_qt_xml(out)
        if not results:
            text = proc.stdout.decode(errors="replace").strip().splitlines()
            return None, "could not run as nobody: " + (text[-1] if text else f"exit {proc.returncode}")
        return results, None
    except (OSError, subprocess.TimeoutExpired) as error:
        return None, f"could not run as nobody: {error}"
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def main():
    build = Path(sys.argv[1] if len(sys.argv) > 1 else "build").resolve()
    folder = build / "test-results"
    source_dir = str(build.parent)
    verdicts = ctest_verdicts(folder / "ctest.xml")
    passed = 0
    skipped = []
    failed = []
    reran = []
    as_root = os.geteuid() == 0

    for name in sorted(verdicts):
        results, complete = read_qt_xml(folder / f"{name}.xml")
        program = build / "tests" / f"test_{name}"
        if as_root:
            for (function, tag), (verdict, reason) in list(results.items()):
                if verdict == "skip" and reason.startswith(ORDINARY_USER):
                    # A data row runs on its own as function:tag.
                    rerun, why = run_as_nobody(program, function + (f":{tag}" if tag else ""), source_dir)
                    reran.append(f"{name}: {function}" + (f"({tag})" if tag else ""))
                    if rerun is None:
                        results[(function, tag)] = ("skip", f"{reason}; {why}")
                        continue
                    for key, value in rerun.items():
                        if key[0] == function and (not tag or key[1] == tag):
                            verdict2, reason2 = value
                            if verdict2 == "pass":
                                reason2 = ""
                            results[key] = (verdict2, reason2 + (" (run as nobody)" if reason2 else ""))
        for (function, tag), (verdict, reason) in results.items():
            label = f"{name}: {function}" + (f"({tag})" if tag else "")
            if verdict == "pass":
                if function not in FIXTURES:
                    passed += 1
            elif verdict == "skip" and function == "initTestCase":
                # The program skipped as a whole: each of its functions counts as skipped.
                functions = function_names(program) or ["(every function)"]
                skipped.append((f"{name}: {', '.join(functions)}", reason, len(functions)))
            elif verdict == "skip":
                skipped.append((label, reason, 1))
            else:
                failed.append((label, reason))
        has_failure = any(v == "fail" for v, _ in results.values())
        if not verdicts[name] and not has_failure:
            why = "the test program failed without a failed function (crash, time-out or exit status)"
            if not complete:
                why = "the test program ended early (crash or time-out)"
            failed.append((f"{name}", why))

    if reran:
        print("Run again as the user nobody (they need an ordinary user):")
        for label in reran:
            print(f"  {label}")
    skip_count = sum(count for _, _, count in skipped)
    if skipped:
        print(f"Skipped ({skip_count}):")
        for label, reason, _ in skipped:
            print(f"  {label}: {reason}")
    if failed:
        print(f"Failed ({len(failed)}):")
        for label, reason in failed:
            print(f"  {label}: {reason}")
    if not verdicts:
        print("no test results found", file=sys.stderr)
    print(f"{passed} passed, {len(failed)} failed, {skip_count} skipped")
    return 1 if failed or not verdicts else 0


if __name__ == "__main__":
    sys.exit(main())
