#!/usr/bin/env python3
"""Plays the robustness corpus through ostrel-scan on every source and
compares what the scan reports with each stream's truth.

  corpus_check.py --corpus OSTREL-CORPUS --scan OSTREL-SCAN [--emu OSTREL-DVB-EMU]
                  [--sources sim,dvb] [--modes once,loop] [--only TEXT] [--keep DIR]

Sources: sim (the simulator plays the file, --fast, once and looping), dvb
(ostrel-dvb-emu plays it on an emulated adapter; root, /dev/fuse, unshare -m).
Each run is held to the truth (compare: the state of each table, no name from
a trap named "BAD" or of two versions, the services, PMTs and exit status);
the simulator's once runs also to the parity of their text and JSON (parity).
Prints one line per failure and a summary; exit status 1 on any failure.
"""

import argparse
import concurrent.futures
import datetime
import itertools
import json
import os
import re
import subprocess
import sys
import tempfile

TABLES = ("PAT", "SDT", "NIT")


def states(report):
    """The scan's state of each table: complete, "K of N", or missing."""
    out = {}
    for table in TABLES:
        parts = [m.group(1) for note in report["incomplete"]
                 if (m := re.match(table + r": (\d+ of \d+) sections$", note))]
        came = any(q["what"] == table and q["outcome"] == "delivered" for q in report["requests"])
        out[table] = parts[-1] if parts else "complete" if came else "missing"
    return out


def compare(case, mode, report, status):
    """The differences between a report and the truth, as sentences: each
    table's state (complete, "K of N" once, incomplete looped, or missing); no
    trap's name ("BAD": a bad CRC, another table, a version not current) nor
    names of two versions; with the PAT complete, the transport stream id, the
    services and their PMT PIDs; with the SDT complete, every name one the truth
    allows; looped, every PMT carried delivered and no other; exit status 3
    without a PAT, 4 when a table or a PMT the PAT names did not come, else 0."""
    faults = []
    truth_states = case[mode]
    got = states(report)
    for table in TABLES:
        want, have = truth_states[table], got[table]
        if mode == "loop" and " of " in have:
            have = "incomplete"
        if want != have:
            faults.append(f"{table} {have}, expected {want}")
    truth = {s["id"]: s for s in case["services"]}

    def allowed(t):
        return t["names"] + (t["loopNames"] if mode == "loop" else [])

    for s in report["services"]:
        if "BAD" in s["name"] or "BAD" in s["provider"]:
            faults.append(f"service {s['id']:#06x} named {s['name']!r} (a trap)")
        t = truth.get(s["id"])
        if t is None:
            faults.append(f"service {s['id']:#06x} not in the stream")
            continue
        if s["name"] and s["name"] not in allowed(t):
            faults.append(f"service {s['id']:#06x} named {s['name']!r}, expected {t['names']}")
        if s["pmtPid"] is not None and s["pmtPid"] != t["pmtPid"]:
            faults.append(f"service {s['id']:#06x} PMT PID {s['pmtPid']}, expected {t['pmtPid']}")
    tags = {tag for tag in case["versionTags"] for s in report["services"]
            if s["name"].endswith(tag)}
    if len(tags) > 1:
        faults.append(f"names of versions {sorted(tags)} mixed")
    reported = {s["id"]: s for s in report["services"]}
    if truth_states["PAT"] == "complete":
        ts = report["transportStream"]
        if ts is None or ts["id"] != case["tsId"]:
            faults.append(f"transport stream {ts and ts['id']}, expected {case['tsId']}")
        optional = {s["id"] for s in case["services"] if s["loopOptional"] and mode == "loop"}
        want = {s["id"] for s in case["services"] if s["pmtPid"] is not None} - optional
        have = {i for i, s in reported.items() if s["pmtPid"] is not None} - optional
        if want != have:
            faults.append(f"PAT services {sorted(have - want)} too many, "
                          f"{sorted(want - have)} missing")
    if truth_states["SDT"] == "complete":
        for t in case["services"]:
            if t["names"] and reported.get(t["id"], {}).get("name") not in allowed(t):
                faults.append(f"service {t['id']:#06x} has no name from the SDT")
    came = ("delivered", "from cache")
    if mode == "loop":
        for t in case["services"]:
            s = reported.get(t["id"])
            if s and None not in (t["pmtPid"], s["pmtPid"]) and t["pmt"] != (s["pmt"] in came):
                faults.append(f"PMT of {t['id']:#06x} {s['pmt']}, expected "
                              + ("delivered" if t["pmt"] else "none"))
    # Looped, every PMT the stream carries comes; once, a PMT carried before
    # its request could see it may be missed: the report says which came.
    pmts_whole = (all(t["pmt"] for t in case["services"] if t["pmtPid"] is not None)
                  if mode == "loop" else
                  all(s["pmt"] in came for s in report["services"] if s["pmtPid"] is not None))
    whole = all(s in ("complete", "missing") for s in truth_states.values()) and pmts_whole
    want = 3 if truth_states["PAT"] == "missing" else 0 if whole else 4
    if status != want:
        faults.append(f"exit status {status}, expected {want}")
    return faults


def escaped(text):
    """A name as both outputs write it: a line break (CR LF, CR or LF) is \\n."""
    return "".join("\\" + c if c in '"\\' else "\\n" if c == "\n" else
                   f"\\u{ord(c):04x}" if ord(c) < 0x20 or ord(c) == 0x7F else c
                   for c in text.replace("\r\n", "\n").replace("\r", "\n"))


def renderings(value):
    """The ways the text may show one JSON value (None: nothing to look for)."""
    if value is None or isinstance(value, bool):
        return None  # absent, or a flag the text shows as a word when set
    if isinstance(value, str):
        return [escaped(value)] if value else None
    if isinstance(value, float):
        return [f"{value:.1f}", f"{value:.3f}"]
    v = abs(value)
    offset = f"UTC{'-' if value < 0 else '+'}{v // 3600:02d}:{v % 3600 // 60:02d}"
    date = datetime.datetime.fromtimestamp(value, datetime.timezone.utc).strftime(
        "%Y-%m-%d %H:%M:%S") if 0 < value < 253402300800 else ""
    return [str(value), f"0x{value:02X}", f"0x{value:04X}",
            f"{value // 1000000}.{value % 1000000:06d} MHz", offset, date]


def leaves(record):
    """(key, value) of every fact of a JSON record, nested ones included."""
    if not isinstance(record, dict):
        yield "", record
        return
    for key, value in record.items():
        if isinstance(value, list):
            for item in value:
                yield from leaves(item) if isinstance(item, dict) else [(key, item)]
        else:
            yield key, value


def shown(record, line):
    """The facts of a record its text line does not show."""
    missing = []
    for key, value in leaves(record):
        # A code is shown by its name beside it (type: typeName, tableId: tableName).
        if isinstance(record, dict) and (key + "Name" in record or
                                         key.removesuffix("Id") + "Name" in record):
            continue
        # A PMT that came is shown by its streams.
        if key == "pmt" and "streams" in record:
            continue
        forms = renderings(value)
        if forms and not any(f and f in line for f in forms):
            missing.append(f"{key or 'value'}={value!r}")
    return missing


def begins(line, form):
    """Whether line begins with form as a whole word ("0x0640", not "0")."""
    rest = line[len(form):]
    return line.startswith(form) and not (rest[:1].isalnum() or rest[:1] == ".")


def parity(report, text):
    """Where the text and the JSON of one scan differ, fact by fact: each JSON
    record (an object, or a value of a list of values) has a text line that
    shows every one of its facts, and each line of the text, beyond headings
    and what is absent, is such a line of some record."""
    faults = []
    lines = [x for x in text.splitlines()[1:] if x.strip()]
    used = set()
    for key, part in report.items():
        if key == "interrupted" or part is None:
            continue
        for record in part if isinstance(part, list) else [part]:
            # Its line begins (after a label) with its first fact, and shows
            # them all; two records alike take two lines.
            first = next((tuple(f for f in renderings(v) if f) for _, v in leaves(record)
                          if renderings(v)), ("",))
            fits = [i for i, line in enumerate(lines)
                    if any(begins(line, f) or begins(line[11:], f) for f in first)
                    and not shown(record, line)]
            best = next((i for i in fits if i not in used), fits[0] if fits else None)
            if best is None:
                near = min(lines, key=lambda x: len(shown(record, x))) if lines else ""
                faults.append(f"{key}: no text line shows {shown(record, near)} of {record}")
            else:
                used.add(best)
    for i, line in enumerate(lines):
        # Headings, what is absent ("Transport  (no PAT)") and the health's
        # "(not measured)" name no fact.
        heading = line.startswith(("Service ", "Request ", "PID ", "Table "))
        if i not in used and not heading and not line.rstrip().endswith(")"):
            faults.append(f"text line {line.strip()!r} is in no JSON record")
    return faults


def run_scan(opts, args, parity=False):
    """The JSON, status, standard error and, for their parity, the text of one
    scan: the text (with --health) and the JSON (--save-json) of the same scan."""
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        how = ["--health", "--save-json", out.name] if parity else ["--json"]
        p = subprocess.run(opts.scan + ["--no-latency", "--quiet"] + how + args,
                           capture_output=True, text=True, timeout=60)
        try:
            report = json.load(open(out.name)) if parity else json.loads(p.stdout)
            return report, p.returncode, p.stderr, p.stdout if parity else None
        except json.JSONDecodeError:
            return None, p.returncode, p.stderr + p.stdout[:300], None


def scan_sim(opts, path, mode):
    once = ["--once"] if mode == "once" else []
    return run_scan(opts, ["--fast", "--timeout", "30"] + once + [path], parity=bool(once))


def scan_dvb(opts, path, mode, work):
    root = tempfile.mkdtemp(dir=work)
    once = ["--once"] if mode == "once" else []
    emu = subprocess.Popen([opts.emu, "--root", root, "--adapter", path, "--fast",
                            "--start-with", "3"] + once,
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    try:
        if not emu.stdout.readline().startswith("ready"):
            return None, -1, "the emulator did not mount: " + emu.stderr.read(), None
        return run_scan(opts, ["--dvb", root + "/adapter0", "--timeout",
                               "6" if mode == "once" else "30"])
    finally:
        emu.terminate()
        emu.wait(10)
        os.rmdir(root)


def main():
    ap = argparse.ArgumentParser()
    for name, default in (("corpus", None), ("scan", None), ("emu", None), ("sources", "sim"),
                          ("modes", "once,loop"), ("only", ""), ("keep", None), ("jobs", "4")):
        ap.add_argument("--" + name, default=default, required=name in ("corpus", "scan"))
    opts = ap.parse_args()
    work = opts.keep or tempfile.mkdtemp(prefix="ostrel-corpus-")
    os.makedirs(work, exist_ok=True)
    # A program may be a command: words separated by ";" (a CMake list), such
    # as qemu-arm -L SYSROOT PROGRAM on a cross build.
    opts.scan, opts.corpus = opts.scan.split(";"), opts.corpus.split(";")
    subprocess.run(opts.corpus + [work], check=True, stdout=subprocess.DEVNULL)
    with open(os.path.join(work, "truth.json")) as f:
        cases = [c for c in json.load(f) if opts.only in c["file"]]
    failures = runs = 0

    def check(source, mode, case):
        path = os.path.join(work, case["file"])
        report, status, err, text = (scan_sim(opts, path, mode) if source == "sim" else
                                     scan_dvb(opts, path, mode, work))
        if not report:
            return [f"no report (status {status}): {err.strip()[:200]}"]
        return (parity(report, text) if text is not None else []) + compare(case, mode, report, status)

    # The scans mostly wait (for time-outs, for the emulator): several at once.
    with concurrent.futures.ThreadPoolExecutor(max_workers=int(opts.jobs)) as pool:
        for source, mode in itertools.product(opts.sources.split(","), opts.modes.split(",")):
            results = pool.map(lambda case: check(source, mode, case), cases)
            bad = 0
            for case, faults in zip(cases, results):
                for fault in faults:
                    print(f"FAIL {source} {mode} {case['file']}: {fault}")
                bad += bool(faults)
            print(f"{source} {mode}: {len(cases) - bad} of {len(cases)} streams right", flush=True)
            runs, failures = runs + len(cases), failures + bad
    print(f"{runs - failures} of {runs} runs right")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
