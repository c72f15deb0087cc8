#!/usr/bin/env bash
# The whole test suite once under Valgrind memcheck, on the default build that
# scripts/test made: every CTest test (one GoogleTest case each) in a process
# of its own, exactly as CTest would run it, two at a time. Any invalid read or
# write, use of uninitialised memory, bad free, or definite leak fails the
# step. One suppression (tests/sanitizers/memcheck.supp): the caches, which
# live until the process ends. Indirect leaks are not counted on their own:
# each hangs off a definite one, reported unless it is a cache. Tests that
# cannot say anything under memcheck are left out, each with its reason, below.
set -euo pipefail
cd "$(dirname "$0")/../.."
scripts/deps build test memcheck
build=${OSTREL_MEMCHECK_BUILD:-build/default}
[ -f "$build/CMakeCache.txt" ] || timeout 300 cmake --preset default -B "$build" >/dev/null
timeout 1200 cmake --build "$build" -j2 >/dev/null
command -v valgrind >/dev/null || { echo "valgrind is not installed"; exit 1; }

# Exceptions, one a line: test name regex | what instead | reason. "skip" leaves
# the test out; anything else is added to valgrind's options for that test.
exceptions='
^SampleScan\.SecondScanIsAnsweredFromTheCache|skip|two real-time scans back to back: under memcheck a request can miss its deadline, which the test rightly counts as a failure
^sim_muxers_test$|skip|a Python script that runs FFmpeg and ostrel-scan: memcheck would watch the interpreter, not the scan, whose code runs under memcheck in the SampleScan cases
^dvb_server_test$|--trace-children=yes --trace-children-skip=*/sh,*/ffmpeg,*/ostrel-dvb-emu|run through unshare: memcheck follows it into the test program and leaves the shell, FFmpeg and the emulator alone
^dvb_clients_check$|skip|a shell script that mounts the emulated adapter and runs dvb-apps, ostrel-scan and dvbv5-zap against it: memcheck would watch the shell, not the emulator or the scan, whose code runs under memcheck in ChannelFilesTest and the SampleScan cases
^scan_cli_test$|skip|a Python script that runs ostrel-scan: memcheck would watch the interpreter; the scan code runs under memcheck in the SampleScan cases
^corpus_|skip|Python scripts that run ostrel-scan on 51 streams, minutes each natively: memcheck would watch the interpreter; the engine and the scan run under memcheck in server_sources_test and the SampleScan cases
'

# OSTREL_MEMCHECK_FILTER=<regex> runs only the tests whose names match (by hand).
timeout 1500 python3 - "$build" "$exceptions" "${OSTREL_MEMCHECK_FILTER:-}" <<'PY'
import concurrent.futures, json, os, re, subprocess, sys, time

build, exceptions, only = sys.argv[1], sys.argv[2], sys.argv[3]
rules = [line.split('|', 2) for line in exceptions.strip().splitlines() if '|' in line]
listing = json.loads(subprocess.run(['ctest', '--test-dir', build, '--show-only=json-v1'],
                                    check=True, capture_output=True, text=True).stdout)
valgrind = ['valgrind', '--tool=memcheck', '--error-exitcode=97', '--leak-check=full',
            '--show-leak-kinds=definite', '--errors-for-leak-kinds=definite',
            '--suppressions=' + os.path.abspath('tests/sanitizers/memcheck.supp'),
            '--track-origins=no', '--num-callers=30', '--quiet']
tests, skipped, adjusted = [], [], set()
for test in listing['tests']:
    if only and not re.search(only, test['name']):
        continue
    rule = next((r for r in rules if re.search(r[0], test['name'])), None)
    extra = []
    if rule and rule[1] == 'skip':
        skipped.append((test['name'], rule[2]))
        continue
    if rule:
        extra = rule[1].split()
        adjusted.add((rule[0], rule[1], rule[2]))
    props = {p['name']: p['value'] for p in test.get('properties', [])}
    command = test['command']
    # tests/dvb_needs.sh only checks what the test needs, then runs it: memcheck
    # watches the test, not the shell.
    if command[0].endswith('/dvb_needs.sh'):
        command = command[1:]
    tests.append((test['name'], extra + command, props.get('WORKING_DIRECTORY', build)))

def run(entry):
    name, command, cwd = entry
    start = time.time()
    try:
        done = subprocess.run(valgrind + command, cwd=cwd, capture_output=True, text=True,
                              timeout=600)
        return name, done.returncode, done.stdout + done.stderr, time.time() - start
    except subprocess.TimeoutExpired as e:
        return name, 'timeout', str(e.stdout or '') + str(e.stderr or ''), time.time() - start

failed, slowest = [], []
with concurrent.futures.ThreadPoolExecutor(max_workers=2) as pool:
    for name, code, output, seconds in pool.map(run, tests):
        slowest.append((seconds, name))
        if code != 0:
            failed.append(name)
            print(f'---- {name}: {"memcheck errors" if code == 97 else "exit " + str(code)}')
            print(output[-6000:])
for name, reason in skipped:
    print(f'left out: {name} ({reason})')
for rx, options, reason in sorted(adjusted):
    print(f'with {options}: {rx} ({reason})')
slowest.sort(reverse=True)
print('slowest under memcheck:', ', '.join(f'{n} {s:.0f}s' for s, n in slowest[:5]))
print(f'memcheck: {len(tests) - len(failed)} of {len(tests)} tests clean, {len(skipped)} left out')
sys.exit(1 if failed else 0)
PY
