#!/usr/bin/env python3
"""Plays the robustness corpus through ostrel-scan on every source and
compares what the scan reports with each stream's truth.

  corpus_check.py --corpus OSTREL-CORPUS --scan OSTREL-SCAN [--emu OSTREL-DVB-EMU]
                  [--sources sim,dvb] [--modes once,loop] [--only TEXT] [--keep DIR]

Sources: sim (the simulator plays the file: --fast --once, and looping --fast),
dvb (ostrel-dvb-emu plays it on an emulated adapter, --once or looping; needs
root and /dev/fuse, run under unshare -m). For each stream and run:

- each of PAT, SDT, NIT is reported complete, "K of N" sections (once) or
  incomplete (looped), or missing, as the truth says;
- no name from a section that failed its CRC, of another table or of a version
  not current (the truth's traps, named "BAD"), nor names of two versions;
- with the PAT complete: the transport stream id, the services and their PMT
  PIDs; with the SDT complete: every name one the truth allows; looped: every
  PMT the stream carries delivered, and no other;
- the exit status: 3 without a PAT, 4 when a table stayed incomplete or a
  PMT the PAT names did not come, else 0;
- simulator, once: the text report says what the JSON says (the PAT, the
  delivery, what is incomplete, each service's name and PMT state).

Prints one line per failure and a summary; exit status 1 on any failure.
"""

import argparse
import concurrent.futures
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
        state = "missing"
        if any(q["what"] == table and q["outcome"] == "delivered" for q in report["requests"]):
            state = "complete"
        for note in report["incomplete"]:
            m = re.match(table + r": (\d+ of \d+) sections$", note)
            if m:
                state = m.group(1)
        out[table] = state
    return out


def expected_status(truth_states, pmts_whole):
    if truth_states["PAT"] == "missing":
        return 3
    whole = all(s in ("complete", "missing") for s in truth_states.values())
    return 0 if whole and pmts_whole else 4


def compare(case, mode, report, status):
    """The differences between a report and the truth, as sentences."""
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
    for s in report["services"]:
        if "BAD" in s["name"] or "BAD" in s["provider"]:
            faults.append(f"service {s['id']:#06x} named {s['name']!r} (a trap)")
        t = truth.get(s["id"])
        if t is None:
            faults.append(f"service {s['id']:#06x} not in the stream")
            continue
        if s["name"] and s["name"] not in t["names"] + (t["loopNames"] if mode == "loop" else []):
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
            if t["names"] and reported.get(t["id"], {}).get("name") not in t["names"] + (
                    t["loopNames"] if mode == "loop" else []):
                faults.append(f"service {t['id']:#06x} has no name from the SDT")
    if mode == "loop":
        for t in case["services"]:
            s = reported.get(t["id"])
            if s is None or t["pmtPid"] is None or s["pmtPid"] is None:
                continue
            if t["pmt"] != (s["pmt"] in ("delivered", "from cache")):
                faults.append(f"PMT of {t['id']:#06x} {s['pmt']}, expected "
                              + ("delivered" if t["pmt"] else "none"))
    # Looped, every PMT the stream carries comes; once, a PMT carried before
    # its request could see it may be missed: the report says which came.
    if mode == "loop":
        pmts_whole = all(t["pmt"] for t in case["services"] if t["pmtPid"] is not None)
    else:
        pmts_whole = all(s["pmt"] in ("delivered", "from cache")
                         for s in report["services"] if s["pmtPid"] is not None)
    want = expected_status(truth_states, pmts_whole)
    if status != want:
        faults.append(f"exit status {status}, expected {want}")
    return faults


def parity(report, text):
    """Where the text and the JSON of one scan say different things."""
    faults = []
    lines = text.splitlines()
    if (report["transportStream"] is None) != ("Transport  (no PAT)" in lines):
        faults.append("text and JSON differ on the PAT")
    if (report["delivery"] is None) == any(x.startswith("Delivery ") for x in lines):
        faults.append("text and JSON differ on the delivery")
    incomplete = [x[len("Incomplete "):] for x in lines if x.startswith("Incomplete ")]
    if incomplete != report["incomplete"]:
        faults.append(f"text incomplete {incomplete}, JSON {report['incomplete']}")
    for s in report["services"]:
        row = next((x for x in lines if x.startswith(f"0x{s['id']:04X} ")), "")
        state = s["pmt"] if s["pmtPid"] is None else "PMT " + s["pmt"]
        if s["name"] not in row or (s["pmt"] not in ("delivered", "from cache")
                                    and not row.endswith(state)):
            faults.append(f"text row of {s['id']:#06x} {row.strip()!r} differs from the JSON")
    return faults


def run_scan(scan, args, timeout):
    p = subprocess.run(scan + ["--json", "--no-latency", "--quiet"] + args,
                       capture_output=True, text=True, timeout=timeout)
    try:
        return json.loads(p.stdout), p.returncode, p.stderr
    except json.JSONDecodeError:
        return None, p.returncode, p.stderr + p.stdout[:300]


def scan_sim(opts, path, mode):
    once = ["--once"] if mode == "once" else []
    return run_scan(opts.scan, ["--fast", "--timeout", "30"] + once + [path], 60)


def scan_dvb(opts, path, mode, work):
    root = tempfile.mkdtemp(dir=work)
    once = ["--once"] if mode == "once" else []
    emu = subprocess.Popen([opts.emu, "--root", root, "--adapter", path, "--fast",
                            "--start-with", "3"] + once,
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    try:
        if not emu.stdout.readline().startswith("ready"):
            return None, -1, "the emulator did not mount: " + emu.stderr.read()
        return run_scan(opts.scan, ["--dvb", root + "/adapter0", "--timeout",
                                    "6" if mode == "once" else "30"], 60)
    finally:
        emu.terminate()
        emu.wait(10)
        os.rmdir(root)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--corpus", required=True)
    ap.add_argument("--scan", required=True)
    ap.add_argument("--emu")
    ap.add_argument("--sources", default="sim")
    ap.add_argument("--modes", default="once,loop")
    ap.add_argument("--only", default="")
    ap.add_argument("--keep")
    ap.add_argument("--jobs", type=int, default=4)
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
        if source == "sim":
            report, status, err = scan_sim(opts, path, mode)
        else:
            report, status, err = scan_dvb(opts, path, mode, work)
        faults = []
        if report and source == "sim" and mode == "once":
            text = subprocess.run(opts.scan + ["--no-latency", "--quiet", "--fast", "--once", path],
                                  capture_output=True, text=True, timeout=60).stdout
            faults = parity(report, text)
        faults += compare(case, mode, report, status) if report else [
            f"no report (status {status}): {err.strip()[:200]}"]
        return faults

    # The scans mostly wait (for time-outs, for the emulator): several at once.
    with concurrent.futures.ThreadPoolExecutor(max_workers=opts.jobs) as pool:
        for source in opts.sources.split(","):
            for mode in opts.modes.split(","):
                results = pool.map(lambda case: check(source, mode, case), cases)
                bad = 0
                for case, faults in zip(cases, results):
                    runs += 1
                    for fault in faults:
                        print(f"FAIL {source} {mode} {case['file']}: {fault}")
                    bad += bool(faults)
                print(f"{source} {mode}: {len(cases) - bad} of {len(cases)} streams right",
                      flush=True)
                failures += bad
    print(f"{runs - failures} of {runs} runs right")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
