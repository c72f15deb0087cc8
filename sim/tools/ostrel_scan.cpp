// ostrel-scan: plays transport streams in the receiver simulator and drives
// OstrelGingaCommonCore as a middleware does, printing the channel table of
// each tuner and the outcome of every table request.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ChannelScan.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "ReceiverSimulator.h"
#include "RequestFollower.h"
#include "RequestTrace.h"
#include "ScanReport.h"
#include "TransportStreamSource.h"
#include "TunerInput.h"

using namespace Ostrel;

namespace {

const int kExitOk = 0;
const int kExitInput = 1;
const int kExitUsage = 2;
const int kExitNoPat = 3;

const std::chrono::seconds kAfterEnd(5);

std::atomic<bool> s_bInterrupted(false);

void onInterrupt(int) {
  s_bInterrupted = true;
}

struct Options {
  bool watch = false;
  std::vector<std::string> inputs;
  bool json = false;
  std::string tracePath;
  StreamPacer::Mode pacing = StreamPacer::kByPcr;
  uint64_t bitRate = 0;
  bool loop = true;
  double timeoutSeconds = 70;
  double intervalSeconds = 2;
  long rounds = -1;
  bool latencies = true;
  bool quiet = false;
  bool verbose = false;
  FaultPlan faults;
};

void usage(std::FILE* to) {
  std::fprintf(to,
               "usage: ostrel-scan [scan|watch] [options] FILE|-\n"
               "       ostrel-scan [scan|watch] [options] --tuner FILE [--tuner FILE...]\n"
               "\n"
               "Plays MPEG transport streams (188, 192 or 204-byte packets; - is standard\n"
               "input) in the receiver simulator, one tuner per input, and scans each tuner\n"
               "through the Ginga common core: PAT, NIT, SDT and TOT, then every PMT.\n"
               "\n"
               "  scan              print each tuner's channel table and requests (default)\n"
               "  watch             scan again and again; print what changes\n"
               "  --tuner FILE      add an input (a tuner); may be repeated\n"
               "  --json            print JSON instead of tables\n"
               "  --trace FILE      write every request's life as a Chrome trace (JSON)\n"
               "  --fast            play as fast as possible (default: real time by PCR)\n"
               "  --bitrate BPS     play at this many bits per second\n"
               "  --once            do not loop a file at its end\n"
               "  --timeout SEC     give up waiting for answers after SEC seconds (70)\n"
               "  --no-latency      leave latencies out (output that does not vary)\n"
               "  --interval SEC    watch: seconds between scans (2)\n"
               "  --rounds N        watch: stop after N scans\n"
               "  --drop SHARE      fault: drop this share (0..1) of sections\n"
               "  --corrupt SHARE   fault: damage the CRC of this share of sections\n"
               "  --delay MS        fault: deliver every section MS milliseconds late\n"
               "  --hide PID        fault: never deliver this PID (may be repeated)\n"
               "  --seed N          fault: seed of the fault choices (1)\n"
               "  --quiet           no progress line\n"
               "  --verbose         show the library's log messages\n"
               "\n"
               "Exit status: 0 when every tuner's PAT arrived, 1 when an input cannot be\n"
               "read, 2 on a usage error, 3 when a PAT did not arrive. Once an input has\n"
               "ended, requests still open are given 5 s more, then reported as no answer.\n");
}

bool number(const char* text, double* out) {
  char* end = NULL;
  double value = std::strtod(text, &end);
  if (!end || *end != '\0' || end == text || value < 0) {
    return false;
  }
  *out = value;
  return true;
}

// Returns -1 when the options are fine, else the exit status.
int parse(int argc, char** argv, Options* o) {
  int i = 1;
  if (i < argc && (std::strcmp(argv[i], "scan") == 0 || std::strcmp(argv[i], "watch") == 0)) {
    o->watch = std::strcmp(argv[i], "watch") == 0;
    ++i;
  }
  for (; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&](double* out) {
      if (i + 1 >= argc || !number(argv[i + 1], out)) {
        std::fprintf(stderr, "ostrel-scan: %s needs a number\n", arg.c_str());
        return false;
      }
      ++i;
      return true;
    };
    double v = 0;
    if (arg == "-h" || arg == "--help") {
      usage(stdout);
      return kExitOk;
    } else if (arg == "--tuner") {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "ostrel-scan: --tuner needs a file\n");
        return kExitUsage;
      }
      o->inputs.push_back(argv[++i]);
    } else if (arg == "--json") {
      o->json = true;
    } else if (arg == "--trace") {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "ostrel-scan: --trace needs a file\n");
        return kExitUsage;
      }
      o->tracePath = argv[++i];
    } else if (arg == "--fast") {
      o->pacing = StreamPacer::kAsFastAsPossible;
    } else if (arg == "--bitrate") {
      if (!value(&v) || v < 1000) {
        return kExitUsage;
      }
      o->pacing = StreamPacer::kByBitRate;
      o->bitRate = static_cast<uint64_t>(v);
    } else if (arg == "--once") {
      o->loop = false;
    } else if (arg == "--timeout") {
      if (!value(&o->timeoutSeconds))
        return kExitUsage;
    } else if (arg == "--no-latency") {
      o->latencies = false;
    } else if (arg == "--interval") {
      if (!value(&o->intervalSeconds))
        return kExitUsage;
    } else if (arg == "--rounds") {
      if (!value(&v))
        return kExitUsage;
      o->rounds = static_cast<long>(v);
    } else if (arg == "--drop") {
      if (!value(&o->faults.dropShare) || o->faults.dropShare > 1)
        return kExitUsage;
    } else if (arg == "--corrupt") {
      if (!value(&o->faults.corruptShare) || o->faults.corruptShare > 1)
        return kExitUsage;
    } else if (arg == "--delay") {
      if (!value(&v))
        return kExitUsage;
      o->faults.delayMs = static_cast<unsigned int>(v);
    } else if (arg == "--hide") {
      char* end = NULL;
      unsigned long pid = i + 1 < argc ? std::strtoul(argv[i + 1], &end, 0) : 0x2000;
      if (i + 1 >= argc || *end != '\0' || pid >= 0x2000) {
        std::fprintf(stderr, "ostrel-scan: --hide needs a PID (0 to 0x1FFF)\n");
        return kExitUsage;
      }
      ++i;
      o->faults.hiddenPids.insert(static_cast<unsigned short>(pid));
    } else if (arg == "--seed") {
      if (!value(&v))
        return kExitUsage;
      o->faults.seed = static_cast<uint32_t>(v);
    } else if (arg == "--quiet") {
      o->quiet = true;
    } else if (arg == "--verbose") {
      o->verbose = true;
    } else if (arg.size() > 1 && arg[0] == '-') {
      std::fprintf(stderr, "ostrel-scan: unknown option %s\n", arg.c_str());
      usage(stderr);
      return kExitUsage;
    } else {
      o->inputs.push_back(arg);
    }
  }
  if (o->inputs.empty()) {
    usage(stderr);
    return kExitUsage;
  }
  return -1;
}

void quietLog(int, const char*, const char*, void*) {}

// A progress line on a terminal while a scan waits.
class Progress {
 public:
  Progress(bool enabled, TunerInput* tuner, const ChannelScan* scan)
      : m_bEnabled(enabled), m_pTuner(tuner), m_pScan(scan), m_bStop(false) {
    if (m_bEnabled) {
      m_thread = std::thread(&Progress::run, this);
    }
  }
  ~Progress() {
    m_bStop = true;
    if (m_thread.joinable()) {
      m_thread.join();
      std::fprintf(stderr, "\r\033[K");
    }
  }

 private:
  void run() {
    while (!m_bStop) {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      TunerInput::Progress p = m_pTuner->getProgress();
      ChannelScan::Result r = m_pScan->getResult();
      unsigned int ended = 0;
      for (const auto& q : r.requests)
        ended += q.outcome != ChannelScan::kPending ? 1 : 0;
      char where[64] = "";
      if (p.size > 0) {
        std::snprintf(where, sizeof(where), "%3.0f%% of %.1f MB, pass %llu",
                      100.0 * static_cast<double>(p.position) / static_cast<double>(p.size),
                      static_cast<double>(p.size) / 1e6,
                      static_cast<unsigned long long>(p.loops + 1));
      } else {
        std::snprintf(where, sizeof(where), "%.1f MB read", static_cast<double>(p.position) / 1e6);
      }
      std::fprintf(stderr, "\r\033[K%s: %s, %u of %zu requests answered",
                   m_pTuner->getName().c_str(), where, ended, r.requests.size());
      std::fflush(stderr);
    }
  }

  bool m_bEnabled;
  TunerInput* m_pTuner;
  const ChannelScan* m_pScan;
  std::atomic<bool> m_bStop;
  std::thread m_thread;
};

std::string localClock() {
  std::time_t now = std::time(NULL);
  std::tm parts;
  localtime_r(&now, &parts);
  char text[16];
  std::strftime(text, sizeof(text), "%H:%M:%S", &parts);
  return text;
}

// Scans one tuner once; prints nothing.
ChannelScan::Result scanTuner(OstrelGingaCommonCore* core, ReceiverSimulator* sim, int tunerId,
                              signed char mode, const Options& o, RequestTrace* trace) {
  ChannelScan scan(core, tunerId, mode);
  scan.setTrace(trace);
  {
    Progress progress(!o.quiet && !o.watch && isatty(STDERR_FILENO), sim->getTuner(tunerId), &scan);
    scan.start();
    // Once the input has ended nothing more can come: requests still open
    // get a few seconds (the PMT, NIT and SDT time-outs) and no more.
    const auto limit = std::chrono::steady_clock::now() +
                       std::chrono::milliseconds(static_cast<long long>(o.timeoutSeconds * 1000));
    auto endedAt = std::chrono::steady_clock::time_point::max();
    TunerInput* tuner = sim->getTuner(tunerId);
    while (!scan.waitFor(std::chrono::milliseconds(100)) && !s_bInterrupted) {
      auto now = std::chrono::steady_clock::now();
      if (endedAt == std::chrono::steady_clock::time_point::max() && tuner->getProgress().ended) {
        endedAt = now;
      }
      if (now >= limit || now - endedAt >= kAfterEnd) {
        break;
      }
    }
  }
  return scan.getResult();
}

void print(const ChannelScan::Result& r, const Options& o, const std::string& heading) {
  if (o.json) {
    std::cout << ScanReport::json(r, o.latencies);
    return;
  }
  std::cout << heading << "\n\n"
            << ScanReport::channelTable(r) << "\n"
            << ScanReport::requestTable(r, o.latencies) << std::flush;
}

int runScan(OstrelGingaCommonCore* core, ReceiverSimulator* sim, const Options& o,
            RequestTrace* trace) {
  int* ids = NULL;
  unsigned char* types = NULL;
  short error = 0;
  int tuners = core->getTunerList(&ids, &types, &error);
  int status = kExitOk;
  if (o.json && tuners > 1)
    std::cout << "[\n";
  for (int t = 0; t < tuners; ++t) {
    ChannelScan::Result r = scanTuner(core, sim, ids[t], 1, o, trace);
    TunerInput::Progress input = sim->getTuner(ids[t])->getProgress();
    if (!input.error.empty()) {
      std::fprintf(stderr, "ostrel-scan: %s\n", input.error.c_str());
    }
    if (!r.hasPat) {
      std::fprintf(stderr, "ostrel-scan: tuner %d (%s): no PAT arrived\n", ids[t],
                   sim->getTuner(ids[t])->getName().c_str());
      status = input.error.empty() ? kExitNoPat : kExitInput;
    }
    if (o.json && tuners > 1 && t > 0)
      std::cout << ",\n";
    print(r, o, "Tuner " + std::to_string(ids[t]) + ": " + sim->getTuner(ids[t])->getName());
    if (!o.json && t + 1 < tuners)
      std::cout << "\n";
  }
  if (o.json && tuners > 1)
    std::cout << "]\n";
  std::free(ids);
  std::free(types);
  return status;
}

int runWatch(OstrelGingaCommonCore* core, ReceiverSimulator* sim, const Options& o,
             RequestTrace* trace) {
  std::vector<std::string> last(sim->getTunerCount());
  bool anyPat = false;
  for (long round = 0; !s_bInterrupted && (o.rounds < 0 || round < o.rounds); ++round) {
    auto started = std::chrono::steady_clock::now();
    for (size_t t = 0; t < sim->getTunerCount() && !s_bInterrupted; ++t) {
      // After the first round, ask the receiver each time: the cache would
      // keep answering with what it has.
      ChannelScan::Result r =
          scanTuner(core, sim, static_cast<int>(t), round == 0 ? 1 : 2, o, trace);
      anyPat = anyPat || r.hasPat;
      std::string table = o.json ? ScanReport::json(r, false) : ScanReport::channelTable(r);
      if (table != last[t]) {
        if (o.json) {
          std::cout << table << std::flush;
        } else {
          std::cout << localClock() << " tuner " << t << (round == 0 ? "" : ": changed") << "\n"
                    << table << "\n"
                    << std::flush;
        }
        last[t] = table;
      } else if (!o.json) {
        std::cout << localClock() << " tuner " << t << ": no change" << std::endl;
      }
    }
    while (!s_bInterrupted && std::chrono::steady_clock::now() - started <
                                  std::chrono::duration<double>(o.intervalSeconds)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  return anyPat ? kExitOk : kExitNoPat;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  int parsed = parse(argc, argv, &o);
  if (parsed >= 0) {
    return parsed;
  }
  if (!o.verbose) {
    ostrel_log_set_sink(&quietLog, NULL);
  }
  std::unique_ptr<ReceiverSimulator> sim(new ReceiverSimulator());
  sim->setPacing(o.pacing, o.bitRate);
  sim->setFaultPlan(o.faults);
  for (const std::string& input : o.inputs) {
    std::string error;
    std::unique_ptr<TransportStreamSource> source = TransportStreamSource::openFile(input, &error);
    if (!source) {
      std::fprintf(stderr, "ostrel-scan: %s\n", error.c_str());
      return kExitInput;
    }
    source->setLoop(o.loop);
    sim->addTuner(std::move(source));
  }
  signal(SIGINT, onInterrupt);
  signal(SIGTERM, onInterrupt);

  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(sim.get());
  sim->setDataDestination(core);
  sim->start();
  std::unique_ptr<RequestTrace> trace(o.tracePath.empty() ? NULL : new RequestTrace());
  int status = o.watch ? runWatch(core, sim.get(), o, trace.get())
                       : runScan(core, sim.get(), o, trace.get());
  // The receiver goes first, so that nothing is delivered any more; then the
  // requests still followed are dropped and their user data released.
  sim.reset();
  RequestFollower::destroy();
  if (trace && !trace->writeTo(o.tracePath)) {
    std::fprintf(stderr, "ostrel-scan: cannot write %s\n", o.tracePath.c_str());
    return kExitInput;
  }
  return status;
}
