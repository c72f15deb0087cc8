#!/usr/bin/env python3
"""ostrel-scan's command line, one table of cases: options long, short and with
'=', one-line usage errors (exit 2) for bad values, unknown or misplaced words
and options that would do nothing in the chosen mode; inputs and outputs that
fail (exit 1, named, no empty report); an interrupt that prints what the scan
has, marked, then exits 130 (143 on SIGTERM).

usage: scan_cli_test.py OSTREL_SCAN SAMPLE.ts"""
import json, re, signal, subprocess, sys, time

SCAN, SAMPLE = sys.argv[1], sys.argv[2]
HELP = "; try 'ostrel-scan --help'\n"
FAST = ["--fast", "--once", "--no-latency"]
SIM_ONLY = [["--fast"], ["--bitrate", "8e6"], ["--once"], ["--drop", "0.1"], ["--corrupt", "0.1"],
            ["--delay", "5"], ["--hide", "0x11"], ["--seed", "3"]]

# args, exit status, standard error (a pattern, or None), standard output (a
# pattern, "" for nothing, "json" for a document)
CASES = [
    (["--version"], 0, "", r"^ostrel-scan \d+\.\d+\.\d+\n$"),
    (["-V"], 0, "", r"^ostrel-scan \d"),
    (["-h"], 0, "", r"^usage: ostrel-scan "),
    # The sample never carries one PMT it names: status 4 says a table did not come.
    (["--timeout=30", "-q", *FAST, SAMPLE], 4, "", r"\n0xE760   TV         Ostrel HD "),
    (["-qjf", "-t30", "--once", SAMPLE], 4, "", "json"),
    (["-j", "-t", "30", "-f", "--once", "-q", "--", SAMPLE], 4, "", "json"),
    ([], 2, "no input", ""),
    (["--fast", "watch", SAMPLE], 2, "the subcommand 'watch' comes first", ""),
    (["scna", SAMPLE], 2, "unknown subcommand 'scna'", ""),
    (["--hide", "0x2000", SAMPLE], 2, "--hide needs a PID from 0 to 0x1FFF, not 0x2000", ""),
    (["--drop=2", SAMPLE], 2, "--drop needs a share from 0 to 1, not 2", ""),
    (["--timeout", "nan", SAMPLE], 2, "--timeout needs seconds", ""),
    (["-t", "--quiet", SAMPLE], 2, "--timeout needs seconds from 0.001 to 86400, not --quiet", ""),
    (["--tuner", "--quiet", SAMPLE], 2, "--tuner needs a file", ""),
    (["--trace"], 2, "--trace needs a file to write", ""),
    (["--bitrate", "5000", "--fast", SAMPLE], 2, "--fast and --bitrate", ""),
    (["--interval", "1", SAMPLE], 2, "--interval applies to watch only", ""),
    (["--rounds=2", SAMPLE], 2, "--rounds applies to watch only", ""),
    (["watch", "--health", SAMPLE], 2, "--health applies to scan only", ""),
    (["watch", "--save-json", "x.json", SAMPLE], 2, "--save-json applies to scan only", ""),
    (["-q", "--health", *FAST, SAMPLE], 4, "", r"\nTable  +PID  +Extension"),
    (["-qf", "--save-json", "/dev/full", SAMPLE], 1, "cannot write /dev/full: No space left", None),
    (["--nope", SAMPLE], 2, "unknown option --nope", ""),
    (["-qx", SAMPLE], 2, "unknown option -x", ""),
    (["--json=yes", SAMPLE], 2, "--json takes no value", ""),
    (["--channels-format=xyz", SAMPLE], 2, "--channels-format needs dvbv5 or vdr, not xyz", ""),
    (["-qfo", "/nonexistent/channels.conf", SAMPLE], 1, "cannot write /nonexistent/channels.conf", ""),
    (["--dvb", "/tmp", SAMPLE], 2, "--dvb scans adapters only", ""),
    *[(["--dvb", "/tmp", *o], 2, o[0] + " applies to files and network inputs", "")
      for o in SIM_ONLY],
    (["--fast", "/bin/ls"], 1, r"^ostrel-scan: /bin/ls: no transport-stream packets found\n$", ""),
    (["--fast", "/nonexistent.ts"], 1, "/nonexistent.ts: No such file", ""),
    *[(["--fast", i], 1, "^ostrel-scan: " + re.escape(f"{i}: {why}") + "\n$", "") for i, why in (
        ("foo://x", "unknown input scheme (file, udp://, rtp://)"),
        ("rtp://127.0.0.1", "not rtp://[group@]address:port (IPv4, port 0 to 65535)"),
        ("udp://host:1234", "not udp://[group@]address:port (IPv4, port 0 to 65535)"))],
    (["--fast", "--trace", "/dev/full", SAMPLE], 1, "cannot write /dev/full: No space left", None),
]

failures = []


def check(name, status, want_status, err, want_err, out, want_out):
    problems = []
    if status != want_status:
        problems.append(f"exit {status}, not {want_status}")
    if want_status == 2 and not (err.endswith(HELP) and err.count("\n") == 1):
        problems.append("a usage error is one line ending in " + repr(HELP))
    if want_err is not None and not re.search(want_err, err) and not (want_err == "" and err == ""):
        problems.append(f"standard error lacks {want_err!r}")
    if want_out == "json":
        try:
            json.loads(out)
        except ValueError as e:
            problems.append(f"standard output is not JSON: {e}")
    elif want_out == "" and out:
        problems.append("standard output is not empty")
    elif want_out and not re.search(want_out, out):
        problems.append(f"standard output lacks {want_out!r}")
    if problems:
        failures.append(f"{name}: " + "; ".join(problems) + f"\n  stderr: {err!r}\n  stdout: {out[:300]!r}")


for args, want_status, want_err, want_out in CASES:
    p = subprocess.run([SCAN, *args], capture_output=True, text=True, timeout=60)
    check("ostrel-scan " + " ".join(args), p.returncode, want_status, p.stderr, want_err, p.stdout,
          want_out)

# --dvb names the path it could not open and the system's reason (exit 2 when
# built without the DVB server).
p = subprocess.run([SCAN, "--dvb", "/tmp"], capture_output=True, text=True, timeout=60)
if "built without the DVB server" not in p.stderr:
    check("--dvb /tmp", p.returncode, 1, p.stderr,
          r"^ostrel-scan: /tmp/frontend0: No such file or directory\n$", p.stdout, "")

# A failed write of standard output is named, exit 1.
for extra in ([], ["--json"]):
    with open("/dev/full", "w") as full:
        p = subprocess.run([SCAN, *FAST, *extra, SAMPLE], stdout=full, stderr=subprocess.PIPE,
                           text=True, timeout=60)
    check("standard output on /dev/full " + " ".join(extra), p.returncode, 1, p.stderr,
          "cannot write standard output: No space left on device", "", None)

# An interrupted scan (in real time, a second into a scan of two tuners)
# prints the tuner it was scanning, marked, and stops there. The four run at
# once.
runs = []
for sig, want_status in ((signal.SIGINT, 130), (signal.SIGTERM, 143)):
    for extra, want_out in (([], r"^Tuner 0: .*\nInterrupted: the scan of this tuner was cut short\n$"),
                            (["--json"], "json")):
        p = subprocess.Popen([SCAN, "-q", "--no-latency", *extra, "--tuner", SAMPLE, "--tuner",
                              SAMPLE], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        runs.append((p, sig, want_status, extra, want_out))
time.sleep(1)
for p, sig, *_ in runs:
    p.send_signal(sig)
for p, sig, want_status, extra, want_out in runs:
    out, err = p.communicate(timeout=60)
    name = f"{sig.name} {' '.join(extra)}"
    check(name, p.returncode, want_status, err, None, out, None)
    if want_out == "json":
        try:
            doc = json.loads(out)
            if len(doc) != 1 or doc[0].get("interrupted") is not True:
                failures.append(f"{name}: not one tuner marked interrupted: {out[:300]!r}")
        except ValueError as e:
            failures.append(f"{name}: not JSON ({e}): {out[:300]!r}")
    elif not re.search(want_out, out, re.S) or "Tuner 1" in out:
        failures.append(f"{name}: the first tuner, marked, alone: {out[-300:]!r}")

for f in failures:
    print("FAIL " + f)
print(f"{len(CASES) + 7 - len(failures)} checks passed, {len(failures)} failed")
sys.exit(1 if failures else 0)
