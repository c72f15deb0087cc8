#!/usr/bin/env python3
"""Scans of streams written by two independent muxers, FFmpeg's and
GStreamer's, agree field by field with FFprobe's reading of the same files.

usage: sim_muxers_test.py OSTREL_SCAN WORK_DIR [--realtime]

The streams are made here, from FFmpeg's test sources: 1.5 s each. Every
stream is scanned as fast as possible once and looping (--realtime: in real
time, once and looping). Exit 77 (skipped) when a tool is missing; CI installs
them (scripts/packages.d/sim.txt)."""
import json
import os
import shutil
import subprocess
import sys

SCAN, WORK = os.path.abspath(sys.argv[1]), sys.argv[2]
MODES = [["--once"], []] if "--realtime" in sys.argv[3:] else [["--fast", "--once"], ["--fast"]]

missing = [t for t in ("ffmpeg", "ffprobe", "gst-launch-1.0") if not shutil.which(t)]
if missing:
    print("skipped: not installed: " + ", ".join(missing))
    sys.exit(77)
os.makedirs(WORK, exist_ok=True)


def run(*args):
    subprocess.run(args, cwd=WORK, check=True, stdout=subprocess.DEVNULL)


def ffmpeg_stream():
    """Two services (MPEG-2 video with MPEG audio; AAC audio), named in an SDT."""
    run("ffmpeg", "-v", "error", "-y",
        "-f", "lavfi", "-i", "testsrc=size=160x120:rate=10",
        "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000",
        "-f", "lavfi", "-i", "sine=frequency=880:sample_rate=48000",
        "-t", "1.5", "-map", "0:v", "-map", "1:a", "-map", "2:a",
        "-c:v", "mpeg2video", "-c:a:0", "mp2", "-c:a:1", "aac", "-f", "mpegts",
        "-mpegts_transport_stream_id", "0x0042", "-mpegts_original_network_id", "0x0007",
        "-mpegts_pmt_start_pid", "0x1000", "-mpegts_start_pid", "0x0100",
        "-program", "program_num=0x101:title=Canal Um:st=0:st=1",
        "-program", "program_num=0x102:title=R\u00e1dio Dois:st=2", "ffmpeg.ts")
    return "ffmpeg.ts"


def gstreamer_stream():
    """GStreamer's muxer over elementary streams that FFmpeg encodes: two
    programmes, PAT and PMTs only."""
    run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=160x120:rate=10",
        "-t", "1.5", "-c:v", "mpeg2video", "-f", "mpeg2video", "video.m2v")
    run("ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "sine=sample_rate=48000",
        "-t", "1.5", "-c:a", "mp2", "-f", "mp2", "audio.mp2")
    run("gst-launch-1.0", "-q", "mpegtsmux", "name=m",
        "prog-map=program_map,sink_300=7,sink_301=9", "!", "filesink", "location=gst.ts",
        "filesrc", "location=video.m2v", "!", "mpegvideoparse", "!", "m.sink_300",
        "filesrc", "location=audio.mp2", "!", "mpegaudioparse", "!", "m.sink_301")
    return "gst.ts"


def probed(path):
    """FFprobe's services: id -> PMT PID, PCR PID, names, {PID: stream type}."""
    out = subprocess.run(["ffprobe", "-v", "error", "-show_programs", "-of", "json", path],
                         cwd=WORK, check=True, capture_output=True, text=True).stdout
    services = {}
    for p in json.loads(out)["programs"]:
        tags = p.get("tags", {})
        services[p["program_id"]] = {
            "pmtPid": p["pmt_pid"], "pcrPid": p["pcr_pid"],
            "name": tags.get("service_name", ""), "provider": tags.get("service_provider", ""),
            "streams": {int(s["id"], 16): int(s["codec_tag"], 16) for s in p["streams"]}}
    return services


def scanned(path, mode):
    """ostrel-scan's services in the same shape; every request must have ended."""
    done = subprocess.run([SCAN, "--json", "--no-latency", "--quiet", "--timeout", "30"] + mode +
                          [path], cwd=WORK, capture_output=True, text=True)
    assert done.returncode == 0, f"exit {done.returncode}: {done.stderr}"
    result = json.loads(done.stdout)
    for request in result["requests"]:
        assert request["outcome"] in ("delivered", "not in the stream"), request
    assert result["incomplete"] == [], result["incomplete"]
    return {s["id"]: {"pmtPid": s["pmtPid"], "pcrPid": s.get("pcrPid"), "name": s["name"],
                      "provider": s["provider"],
                      "streams": {t["pid"]: t["type"] for t in s.get("streams", [])}}
            for s in result["services"]}


failures = 0
for make in (ffmpeg_stream, gstreamer_stream):
    path = make()
    expected = probed(path)
    assert len(expected) == 2, expected
    for mode in MODES:
        got = scanned(path, mode)
        if got != expected:
            failures += 1
            print(f"{path} {' '.join(mode)}:\n  ffprobe {expected}\n  scan    {got}")
        else:
            print(f"{path} {' '.join(mode) or '(real time, looping)'}: {len(got)} services agree")
sys.exit(1 if failures else 0)
