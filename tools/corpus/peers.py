#!/usr/bin/env python3
"""The field's decoders and ostrel-scan on the robustness corpus: a Markdown
table of each case, what each reported, right or wrong (docs/robustness-corpus.md).

  peers.py --bin BUILD-DIR [--work DIR] [--only TEXT] [--real DIR]
  peers.py --bin BUILD-DIR --agree DIR

--agree checks, without the corpus, that ostrel-scan and libdvbpsi read each
capture of DIR alike (table states, transport stream id, services, PMT PIDs,
names); exit status 1 where they differ.

BUILD-DIR holds tools/corpus/ostrel-corpus, ostrel-peer-dvbpsi,
ostrel-peer-dvbv5, tools/dvb-emu/ostrel-dvb-emu and scan/ostrel-scan.
Readers, each on the stream played once unless said:
  ostrel-scan  the simulator, --fast --once (and the exit status)
  libdvbpsi    ostrel-peer-dvbpsi FILE (its PAT, SDT, NIT and PMT decoders)
  libdvbv5     ostrel-peer-dvbv5 on ostrel-dvb-emu looping the file at 40 Mbit/s
               (dvb_read_section, 2 s time-outs);
               needs root and /dev/fuse, run under unshare -m
  dvbv5-scan   dvbv5-scan, as its users run it, of the same emulated adapter bound
               at /dev/dvb, found by libudev through entries on a tmpfs over
               /sys/class (root, under unshare -m); 30 s at most; its channel
               file gives services and names, not table states or PMT PIDs
  ffprobe      ffprobe -show_programs (programmes and their names; no table states)
A reader is right when it calls a table complete exactly when the truth does
(libdvbpsi, libdvbv5 and ffprobe hand on whole tables only: for them an
incomplete table must stay unreported), reports no trap ("BAD"), and, for a
complete PAT and SDT, the truth's transport stream id, services, PMT PIDs and
names. --real adds the captures of DIR (no truth: what each reported).
"""

import argparse
import contextlib
import json
import os
import subprocess
import sys
import tempfile

TABLES = ("PAT", "SDT", "NIT")


def run(args, timeout=90):
    p = subprocess.run(args, capture_output=True, text=True, timeout=timeout)
    return p.stdout, p.returncode


def scan_view(path, scan):
    out, status = run([scan, "--json", "--no-latency", "--quiet", "--fast", "--once",
                       "--timeout", "30", path])
    r = json.loads(out)
    view = {"services": [{"id": s["id"], "pmtPid": s["pmtPid"], "name": s["name"],
                          "provider": s["provider"]} for s in r["services"]],
            "tsId": r["transportStream"] and r["transportStream"]["id"], "status": status}
    for t in TABLES:
        view[t] = "missing"
        if any(q["what"] == t and q["outcome"] == "delivered" for q in r["requests"]):
            view[t] = "complete"
        for note in r["incomplete"]:
            if note.startswith(t + ":"):
                view[t] = note.split(": ")[1].replace(" sections", "")
    return view


def ffprobe_view(path):
    out, _ = run(["ffprobe", "-v", "quiet", "-show_programs", "-of", "json", path])
    progs = json.loads(out or "{}").get("programs", [])
    # A service only the SDT names comes as a programme of PMT PID 0.
    return {"services": [{"id": p["program_id"], "pmtPid": p["pmt_pid"] or None,
                          "name": p.get("tags", {}).get("service_name", ""),
                          "provider": p.get("tags", {}).get("service_provider", "")}
                         for p in progs]}


@contextlib.contextmanager
def emulated(path, emu, work):
    """The root of ostrel-dvb-emu looping path at 40 Mbit/s (None when it did
    not mount), for the length of the block."""
    root = tempfile.mkdtemp(dir=work)
    e = subprocess.Popen([emu, "--root", root, "--adapter", path, "--bitrate", "40000000"],
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    try:
        yield root if e.stdout.readline().startswith("ready") else None
    finally:
        e.terminate()
        e.wait(10)
        os.rmdir(root)


def dvbv5_view(path, emu, peer, work):
    with emulated(path, emu, work) as root:
        try:
            return root and json.loads(run([peer, root + "/adapter0/demux0", "2"])[0])
        except subprocess.TimeoutExpired:
            return None


def bind_sysfs():
    """The entries libudev reads for adapter 0, on a tmpfs over /sys/class
    (this mount namespace only), and /dev/dvb to bind adapters at."""
    os.makedirs("/dev/dvb", exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "ostrel-sysfs", "/sys/class"], check=True)
    for minor, node in enumerate(("frontend", "demux", "dvr")):
        d = f"/sys/class/dvb/dvb0.{node}0"
        os.makedirs(d)
        with open(d + "/uevent", "w") as f:
            f.write(f"MAJOR=212\nMINOR={minor}\nDEVNAME=dvb/adapter0/{node}0\n"
                    f"DVB_ADAPTER_NUM=0\nDVB_DEVICE_TYPE={node}\nDVB_DEVICE_NUM=0\n")
        os.symlink("../../dvb", d + "/subsystem")
    os.environ["SYSTEMD_DEVICE_VERIFY_SYSFS"] = "0"


def dvbv5_scan_view(path, emu, work):
    with emulated(path, emu, work) as root:
        if root is None:
            return None
        init, out = root + ".init.conf", root + ".conf"
        try:
            subprocess.run(["mount", "--bind", root, "/dev/dvb"], check=True)
            with open(init, "w") as f:
                f.write("[CHANNEL]\n\tDELIVERY_SYSTEM = ISDBT\n\tFREQUENCY = 575142857\n")
            run(["dvbv5-scan", init, "-o", out], timeout=30)
            services, entry = [], None
            with open(out) as f:
                for line in f:
                    if line.startswith("["):
                        entry = {"id": None, "pmtPid": None, "name": line.strip()[1:-1],
                                 "provider": ""}
                        services.append(entry)
                    elif entry is not None and line.strip().startswith("SERVICE_ID ="):
                        entry["id"] = int(line.split("=")[1])
            return {"services": services}
        except (subprocess.TimeoutExpired, FileNotFoundError):
            return None
        finally:
            subprocess.run(["umount", "/dev/dvb"], stderr=subprocess.DEVNULL)
            for f in (init, out):
                if os.path.exists(f):
                    os.remove(f)


def judge(case, view, states=True, mode="once", pids=True):
    """'right', or what was wrong. Without pids, services are compared by id
    (a reader that does not give PMT PIDs)."""
    wrong = []
    if states:
        for t in TABLES:
            want = case[mode][t]
            have = view[t]
            if (want == "complete") != (have == "complete") or (
                    " of " in want and " of " in have and want != have):
                wrong.append(f"{t} {have} (truth {want})")
    truth = {s["id"]: s for s in case["services"]}
    got = {s["id"]: s for s in view["services"]}
    bad = sorted({s["name"] for s in view["services"] if "BAD" in s["name"] + s["provider"]})
    if bad:
        wrong.append("reports " + ", ".join(bad[:2]))
    if case["once"]["PAT"] == "complete":
        if states and view.get("tsId") != case["tsId"]:
            wrong.append(f"ts id {view.get('tsId')}")
        want = {i: s["pmtPid"] for i, s in truth.items() if s["pmtPid"] is not None}
        have = {i: s["pmtPid"] for i, s in got.items() if s["pmtPid"] is not None}
        if not pids:
            carried = {i for i in want if truth[i]["pmt"]}
            extra, lost = sorted(set(got) - set(want)), sorted(carried - set(got))
            if extra or lost:
                wrong.append(f"programmes: {len(extra)} extra, {len(lost)} missing")
        elif want != have:
            extra = sorted(set(have) - set(want))
            lost = sorted(set(want) - set(have))
            wrong.append(f"programmes: {len(extra)} extra, {len(lost)} missing"
                         if extra or lost else "PMT PIDs differ")
    if case["once"]["SDT"] == "complete":
        named = [i for i, s in truth.items() if s["names"] and
                 (s["pmtPid"] is not None or states)]
        off = [i for i in named if got.get(i, {}).get("name") not in truth[i]["names"]]
        if off:
            wrong.append(f"{len(off)} names wrong or missing")
    return "right" if not wrong else "WRONG: " + "; ".join(wrong)


def summary(view):
    if view is None:
        return "no answer"
    parts = [f"{t} {view[t]}" for t in TABLES if t in view]
    named = sum(1 for s in view["services"] if s["name"])
    parts.append(f"{len(view['services'])} services, {named} named")
    return ", ".join(parts)


def agree(folder, scan, dvbpsi):
    """Whether ostrel-scan and libdvbpsi read every capture of folder alike."""
    def facts(view):
        return ({t: view[t] for t in TABLES}, view["tsId"],
                sorted((v["id"], v["pmtPid"], v["name"]) for v in view["services"]))
    differ = 0
    for name in sorted(n for n in os.listdir(folder) if n.endswith(".ts")):
        path = os.path.join(folder, name)
        ours, theirs = facts(scan_view(path, scan)), facts(json.loads(run([dvbpsi, path])[0]))
        differ += ours != theirs
        print(f"{name}: " + ("alike" if ours == theirs else f"ostrel-scan {ours}, libdvbpsi {theirs}"))
    return 1 if differ else 0


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--bin", required=True)
    ap.add_argument("--work")
    ap.add_argument("--only", default="")
    ap.add_argument("--real")
    ap.add_argument("--agree")
    ap.add_argument("--readers", default="ostrel-scan,libdvbpsi,libdvbv5,dvbv5-scan,ffprobe")
    o = ap.parse_args()
    b = o.bin
    corpus, scan = b + "/tools/corpus/ostrel-corpus", b + "/scan/ostrel-scan"
    dvbpsi, dvbv5 = b + "/tools/corpus/ostrel-peer-dvbpsi", b + "/tools/corpus/ostrel-peer-dvbv5"
    emu = b + "/tools/dvb-emu/ostrel-dvb-emu"
    if o.agree:
        return agree(o.agree, scan, dvbpsi)
    work = o.work or tempfile.mkdtemp(prefix="ostrel-peers-")
    os.makedirs(work, exist_ok=True)
    subprocess.run([corpus, work], check=True, stdout=subprocess.DEVNULL)
    with open(os.path.join(work, "truth.json")) as f:
        cases = [c for c in json.load(f) if o.only in c["file"]]
    readers = o.readers.split(",")
    if "dvbv5-scan" in readers:
        bind_sysfs()
    print("| case | " + " | ".join(readers) + " |")
    print("|---" * (len(readers) + 1) + "|")
    tally = {}
    for case in cases:
        path = os.path.join(work, case["file"])
        view_of = {"ostrel-scan": lambda: scan_view(path, scan),
                   "libdvbpsi": lambda: json.loads(run([dvbpsi, path])[0]),
                   "libdvbv5": lambda: dvbv5_view(path, emu, dvbv5, work),
                   "dvbv5-scan": lambda: dvbv5_scan_view(path, emu, work),
                   "ffprobe": lambda: ffprobe_view(path)}
        views = {k: view_of[k]() for k in readers}
        cells = []
        for name, view in views.items():
            looped = name in ("libdvbv5", "dvbv5-scan")
            verdict = "no answer" if view is None else judge(
                case, view, name not in ("ffprobe", "dvbv5-scan"), "loop" if looped else "once",
                name != "dvbv5-scan")
            tally.setdefault(name, 0)
            tally[name] += verdict == "right"
            cells.append("right" if verdict == "right" else verdict.replace("|", "/"))
        print(f"| {case['file'][:-3]} | " + " | ".join(cells) + " |", flush=True)
    print()
    print("Right, of %d: " % len(cases) + ", ".join(f"{k} {v}" for k, v in tally.items()))
    if o.real:
        print("\n| capture | ostrel-scan | libdvbpsi | libdvbv5 | ffprobe |")
        print("|---|---|---|---|---|")
        for name in sorted(os.listdir(o.real)):
            if not name.endswith(".ts"):
                continue
            path = os.path.join(o.real, name)
            s = scan_view(path, scan)
            cells = [summary(s) + f", exit {s['status']}", summary(json.loads(run([dvbpsi, path])[0])),
                     summary(dvbv5_view(path, emu, dvbv5, work)), summary(ffprobe_view(path))]
            print(f"| {name} | " + " | ".join(cells) + " |", flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
