#!/usr/bin/env python3
"""Scans of streams from two independent muxers, FFmpeg's and GStreamer's
(over FFmpeg-encoded elementary streams), agree field by field with FFprobe's
reading of the same files: each made here, 1.5 s, scanned as fast as possible
once and looping (--realtime: in real time). Exit 77 (skipped) when a tool is
missing; scripts/packages.d/sim.txt lists them.

usage: sim_muxers_test.py OSTREL_SCAN WORK_DIR [--realtime]"""
import json, os, shutil, subprocess, sys

SCAN, WORK = os.path.abspath(sys.argv[1]), sys.argv[2]
MODES = [["--once"], []] if "--realtime" in sys.argv[3:] else [["--fast", "--once"], ["--fast"]]
missing = [t for t in ("ffmpeg", "ffprobe", "gst-launch-1.0") if not shutil.which(t)]
if missing:
    sys.exit(print("skipped: not installed: " + ", ".join(missing)) or 77)
os.makedirs(WORK, exist_ok=True)
LAVFI = {"v": "testsrc=size=160x120:rate=10", "a": "sine=sample_rate=48000",
         "b": "sine=frequency=880:sample_rate=48000"}


def run(*args):
    return subprocess.run(args, cwd=WORK, check=True, capture_output=True, text=True).stdout


def ffmpeg(*args):
    run("ffmpeg", "-v", "error", "-y", *args)


# FFmpeg: two services (MPEG-2 video with MPEG audio; AAC audio) named in an SDT.
ffmpeg(*[x for k in "vab" for x in ("-f", "lavfi", "-i", LAVFI[k])], "-t", "1.5",
       "-map", "0:v", "-map", "1:a", "-map", "2:a", "-c:v", "mpeg2video", "-c:a:0", "mp2",
       "-c:a:1", "aac", "-f", "mpegts", "-mpegts_transport_stream_id", "0x42",
       "-mpegts_original_network_id", "7", "-mpegts_pmt_start_pid", "0x1000",
       "-mpegts_start_pid", "0x100", "-program", "program_num=0x101:title=Canal Um:st=0:st=1",
       "-program", "program_num=0x102:title=R\u00e1dio Dois:st=2", "ffmpeg.ts")
# GStreamer: two programmes, PAT and PMTs only.
ffmpeg("-f", "lavfi", "-i", LAVFI["v"], "-t", "1.5", "-c:v", "mpeg2video", "-f", "mpeg2video",
       "video.m2v")
ffmpeg("-f", "lavfi", "-i", LAVFI["a"], "-t", "1.5", "-c:a", "mp2", "-f", "mp2", "audio.mp2")
run("gst-launch-1.0", "-q", "mpegtsmux", "name=m", "prog-map=program_map,sink_300=7,sink_301=9",
    "!", "filesink", "location=gst.ts", "filesrc", "location=video.m2v", "!", "mpegvideoparse",
    "!", "m.sink_300", "filesrc", "location=audio.mp2", "!", "mpegaudioparse", "!", "m.sink_301")


def service(pmt, pcr, name, provider, streams):
    return {"pmtPid": pmt, "pcrPid": pcr, "name": name, "provider": provider, "streams": streams}


failures = 0
for path in ("ffmpeg.ts", "gst.ts"):
    probed = json.loads(run("ffprobe", "-v", "error", "-show_programs", "-of", "json", path))
    expected = {p["program_id"]: service(
        p["pmt_pid"], p["pcr_pid"], p.get("tags", {}).get("service_name", ""),
        p.get("tags", {}).get("service_provider", ""),
        {int(s["id"], 16): int(s["codec_tag"], 16) for s in p["streams"]})
        for p in probed["programs"]}
    assert len(expected) == 2, expected
    for mode in MODES:
        done = subprocess.run([SCAN, "--json", "--no-latency", "--quiet", "--timeout", "30"] +
                              mode + [path], cwd=WORK, capture_output=True, text=True)
        assert done.returncode == 0, f"exit {done.returncode}: {done.stderr}"
        result = json.loads(done.stdout)
        # Every request ended, through an answer or the end of the stream.
        assert all(q["outcome"] in ("delivered", "not in the stream")
                   for q in result["requests"]), result["requests"]
        assert result["incomplete"] == [], result["incomplete"]
        got = {s["id"]: service(s["pmtPid"], s.get("pcrPid"), s["name"], s["provider"],
                                {t["pid"]: t["type"] for t in s.get("streams", [])})
               for s in result["services"]}
        failures += got != expected
        print(f"{path} {' '.join(mode) or '(real time, looping)'}: " +
              ("agree" if got == expected else f"\n  ffprobe {expected}\n  scan    {got}"))
sys.exit(1 if failures else 0)
