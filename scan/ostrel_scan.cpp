// ostrel-scan: plays transport streams in the receiver simulator and drives
// OstrelGingaCommonCore as a middleware does, printing the channel table of
// each tuner and the outcome of every table request.
#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ChannelFiles.h"
#include "ChannelScan.h"
#ifdef OSTREL_HAVE_DVB_SERVER
#include "DvbServer.h"
#endif
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "ReceiverSimulator.h"
#include "RequestFollower.h"
#include "RequestTrace.h"
#include "ScanReport.h"
#include "SimulatorTuners.h"
#include "TransportStreamSource.h"
#include "TunerInput.h"

using namespace Ostrel;

namespace {

const int kExitOk = 0;
const int kExitInput = 1;
const int kExitUsage = 2;
const int kExitNoPat = 3;
// The PAT came, but a table stayed incomplete (some sections of the PAT, NIT
// or SDT, not all) or a PMT the PAT names did not come.
const int kExitIncomplete = 4;

// The signal that ended the run, or 0; the exit status is then 128 + it.
std::atomic<int> s_iInterrupted(0);

// The first SIGINT or SIGTERM ends the scan, which still prints what it found;
// a second one ends the program at once (the handler is reset by then).
void onInterrupt(int signal) {
  s_iInterrupted = signal;
}

// The first failure to write standard output (errno), or 0.
int s_iOutputError = 0;

// Hands what was written to standard output on; remembers the first failure.
// std::cout shares stdout's buffer (synchronised with stdio): stdout is
// flushed first, so that errno is the system's reason.
// A write that failed while the text was written (a long JSON) left its
// reason in errno.
void flushOutput() {
  const int earlier = errno;
  if (std::fflush(stdout) != 0 && !s_iOutputError) {
    s_iOutputError = errno ? errno : EIO;
  }
  std::cout.flush();
  if ((!std::cout || std::ferror(stdout)) && !s_iOutputError) {
    s_iOutputError = earlier ? earlier : EIO;
  }
}

struct Options {
  bool watch = false;
  std::vector<std::string> inputs;
  std::vector<std::string> adapters;  // --dvb
  bool json = false;
  bool health = false;   // --health: the text shows the stream's health
  std::string jsonPath;  // --save-json: the JSON also goes there
  std::string tracePath;
  ReceiverSimulator::Pacing pacing = ReceiverSimulator::kByPcr;
  uint64_t bitRate = 0;
  bool loop = true;
  double timeoutSeconds = 70;
  double intervalSeconds = 2;
  long rounds = -1;
  bool latencies = true;
  bool quiet = false;
  bool verbose = false;
  FaultPlan faults;
  std::string channelsPath;  // --channels
  int channelsFormat = -1;   // a ChannelFiles::Format; -1: by the file name
};

// The progress line and log lines share standard error: one at a time, and a
// log line first clears the progress line.
std::mutex s_mutexStderr;
bool s_bProgressShown = false;

void clearProgress() {
  if (s_bProgressShown) {
    std::fputs("\r\033[K", stderr);
    s_bProgressShown = false;
  }
}

void usage(std::FILE* to) {
  std::fprintf(to,
               "usage: ostrel-scan [scan|watch] [options] FILE|-\n"
               "       ostrel-scan [scan|watch] [options] --tuner FILE [--tuner FILE...]\n"
               "       ostrel-scan [scan|watch] [options] --dvb ADAPTER [--dvb ADAPTER...]\n"
               "\n"
               "Plays MPEG transport streams (188, 192 or 204-byte packets; - is standard\n"
               "input; udp://[group@]address:port receives plain or RTP-wrapped packets,\n"
               "rtp://[group@]address:port RTP only, unicast or multicast) in the receiver\n"
               "simulator, one tuner per input, and\n"
               "scans each tuner through the Ginga common core: PAT, NIT, SDT and TOT,\n"
               "then every PMT.\n"
               "\n"
               "  scan                 print each tuner's channel table and requests (default)\n"
               "  watch                scan again and again; print what changes\n"
               "  --tuner FILE         add an input (a tuner); may be repeated\n"
               "  --dvb ADAPTER        scan a Linux DVB adapter tuned already (/dev/dvb/adapter0,\n"
               "                       one tuner each; may be repeated); see docs/dvb.md\n"
               "  -j, --json           print JSON instead of tables\n"
               "  --save-json FILE     scan: also write the JSON to FILE (tables on standard\n"
               "                       output)\n"
               "  --health             scan: print the stream's health after the tables (CRC\n"
               "                       and continuity errors per PID, how often each table\n"
               "                       came beside its limits); the JSON always has it\n"
               "  --trace FILE         write every request's life as a Chrome trace (JSON)\n"
               "  -o, --channels FILE  write the services found as a channel file for dvbv5-zap\n"
               "                       or VDR (docs/dvb.md)\n"
               "  --channels-format dvbv5|vdr  its format; default vdr for channels.conf and\n"
               "                       *.vdr, else dvbv5\n"
               "  -f, --fast           play as fast as possible (default: real time by PCR)\n"
               "  --bitrate BPS        play at this many bits per second (1000 or more)\n"
               "  --once               do not loop a file at its end\n"
               "  -t, --timeout SEC    give up waiting for answers after SEC seconds (70)\n"
               "  --no-latency         leave latencies out (output that does not vary)\n"
               "  --interval SEC       watch: seconds between scans (2)\n"
               "  --rounds N           watch: stop after N scans (1 or more)\n"
               "  --drop SHARE         fault: drop this share (0..1) of sections\n"
               "  --corrupt SHARE      fault: damage the CRC of this share of sections\n"
               "  --delay MS           fault: deliver every section MS (0..60000) ms late\n"
               "  --hide PID           fault: never deliver this PID (may be repeated)\n"
               "  --seed N             fault: seed of the fault choices (0..4294967295; 1)\n"
               "  -q, --quiet          no progress line\n"
               "  -v, --verbose        show the library's log messages\n"
               "  -h, --help           print this help\n"
               "  -V, --version        print the version\n"
               "\n"
               "A value follows its option as --timeout 5 or --timeout=5 (-t 5, -t5).\n"
               "--fast, --bitrate, --once and the faults apply to files and network\n"
               "inputs, not to --dvb; --interval and --rounds to watch only.\n"
               "\n"
               "Requests for tables that a whole pass of the input did not carry end at\n"
               "once as \"not in the stream\"; tables of which some sections never came\n"
               "are reported incomplete.\n"
               "\n"
               "Exit status: 0 when every tuner's tables came whole, 1 when an input or an\n"
               "output cannot be used, 2 on a usage error, 3 when a PAT did not arrive, 4\n"
               "when the PAT came but a table stayed incomplete or a PMT it names did not\n"
               "come, 130 when interrupted (143 on SIGTERM), after printing what the scan\n"
               "had found.\n");
}

// A usage error: one line naming the fault and where help is. Gives the exit status.
int usageError(const std::string& fault) {
  std::fprintf(stderr, "ostrel-scan: %s; try 'ostrel-scan --help'\n", fault.c_str());
  return kExitUsage;
}

// A finite number in [low, high]; integral when asked.
bool number(const char* text, double low, double high, bool integral, double* out) {
  char* end = NULL;
  double value = std::strtod(text, &end);
  if (end == text || *end != '\0' || !std::isfinite(value) || value < low || value > high ||
      (integral && value != std::floor(value))) {
    return false;
  }
  *out = value;
  return true;
}

// Where an option has an effect.
enum OptionScope { kAnyMode, kSimOnly, kWatchOnly, kScanOnly };

// The options: long name, short letter (0: none), what its value is ("" when
// it takes none) and where it has an effect.
struct OptionRule {
  const char* name;
  char letter;
  const char* value;
  OptionScope scope;
};
const OptionRule kOptions[] = {
    {"--help", 'h', "", kAnyMode},
    {"--version", 'V', "", kAnyMode},
    {"--tuner", 0, "a file (- for standard input)", kAnyMode},
    {"--dvb", 0, "an adapter directory (/dev/dvb/adapter0)", kAnyMode},
    {"--json", 'j', "", kAnyMode},
    {"--save-json", 0, "a file to write", kScanOnly},
    {"--health", 0, "", kScanOnly},
    {"--trace", 0, "a file to write", kAnyMode},
    {"--channels", 'o', "a file to write", kAnyMode},
    {"--channels-format", 0, "dvbv5 or vdr", kAnyMode},
    {"--fast", 'f', "", kSimOnly},
    {"--bitrate", 0, "a bit rate from 1000 to 1e11 bits per second", kSimOnly},
    {"--once", 0, "", kSimOnly},
    {"--timeout", 't', "seconds from 0.001 to 86400", kAnyMode},
    {"--no-latency", 0, "", kAnyMode},
    {"--interval", 0, "seconds from 0 to 86400", kWatchOnly},
    {"--rounds", 0, "a whole number from 1 to 1000000000", kWatchOnly},
    {"--drop", 0, "a share from 0 to 1", kSimOnly},
    {"--corrupt", 0, "a share from 0 to 1", kSimOnly},
    {"--delay", 0, "whole milliseconds from 0 to 60000", kSimOnly},
    {"--hide", 0, "a PID from 0 to 0x1FFF", kSimOnly},
    {"--seed", 0, "a whole number from 0 to 4294967295", kSimOnly},
    {"--quiet", 'q', "", kAnyMode},
    {"--verbose", 'v', "", kAnyMode},
};

const OptionRule* findOption(const std::string& name, char letter) {
  for (const OptionRule& rule : kOptions) {
    if (letter ? rule.letter == letter : name == rule.name) {
      return &rule;
    }
  }
  return NULL;
}

// Sets the option from its value (NULL for an option that takes none).
// Returns -1 when it is fine, else the exit status.
int apply(const OptionRule& rule, const char* text, Options* o) {
  const std::string name = rule.name;
  double v = 0;
  auto value = [&](double low, double high, bool integral, double* out) {
    return number(text, low, high, integral, out);
  };
  bool ok = true;
  if (name == "--help") {
    usage(stdout);
    return kExitOk;
  } else if (name == "--version") {
    std::printf("ostrel-scan %s\n", OSTREL_VERSION);
    return kExitOk;
  } else if (name == "--tuner") {
    o->inputs.push_back(text);
  } else if (name == "--dvb") {
    o->adapters.push_back(text);
  } else if (name == "--json") {
    o->json = true;
  } else if (name == "--save-json") {
    o->jsonPath = text;
  } else if (name == "--health") {
    o->health = true;
  } else if (name == "--trace") {
    o->tracePath = text;
  } else if (name == "--channels") {
    // Checked now, not found unwritable after the scan.
    std::FILE* out = std::fopen(text, "a");
    if (!out) {
      std::fprintf(stderr, "ostrel-scan: cannot write %s: %s\n", ScanReport::escape(text).c_str(),
                   std::strerror(errno));
      return kExitInput;
    }
    std::fclose(out);
    o->channelsPath = text;
  } else if (name == "--channels-format") {
    ChannelFiles::Format format = ChannelFiles::kDvbv5;
    ok = ChannelFiles::parseFormat(text, &format);
    o->channelsFormat = format;
  } else if (name == "--fast") {
    o->pacing = ReceiverSimulator::kAsFastAsPossible;
  } else if (name == "--bitrate") {
    ok = value(1000, 1e11, false, &v);
    o->pacing = ReceiverSimulator::kByBitRate;
    o->bitRate = static_cast<uint64_t>(v);
  } else if (name == "--once") {
    o->loop = false;
  } else if (name == "--timeout") {
    ok = value(0.001, 86400, false, &o->timeoutSeconds);
  } else if (name == "--no-latency") {
    o->latencies = false;
  } else if (name == "--interval") {
    ok = value(0, 86400, false, &o->intervalSeconds);
  } else if (name == "--rounds") {
    ok = value(1, 1e9, true, &v);
    o->rounds = static_cast<long>(v);
  } else if (name == "--drop") {
    ok = value(0, 1, false, &o->faults.dropShare);
  } else if (name == "--corrupt") {
    ok = value(0, 1, false, &o->faults.corruptShare);
  } else if (name == "--delay") {
    ok = value(0, 60000, true, &v);
    o->faults.delayMs = static_cast<unsigned int>(v);
  } else if (name == "--hide") {
    char* end = NULL;
    const unsigned long pid = std::strtoul(text, &end, 0);
    ok = end != text && *end == '\0' && text[0] != '-' && pid < 0x2000;
    o->faults.hiddenPids.insert(static_cast<unsigned short>(pid));
  } else if (name == "--seed") {
    ok = value(0, 4294967295.0, true, &v);
    o->faults.seed = static_cast<uint32_t>(v);
  } else if (name == "--quiet") {
    o->quiet = true;
  } else if (name == "--verbose") {
    o->verbose = true;
  }
  if (!ok) {
    return usageError(name + " needs " + rule.value + ", not " + text);
  }
  return -1;
}

// A word that can only have been meant as a subcommand: letters alone, and
// no file of that name.
bool looksLikeSubcommand(const std::string& arg) {
  if (arg.empty() || access(arg.c_str(), F_OK) == 0) {
    return false;
  }
  for (char c : arg) {
    if (!std::isalpha(static_cast<unsigned char>(c))) {
      return false;
    }
  }
  return true;
}

// Returns -1 when the options are fine, else the exit status. Options are
// given long (--timeout 5, --timeout=5) or short (-t 5, -t5, -qj).
int parse(int argc, char** argv, Options* o) {
  int i = 1;
  if (i < argc && (std::strcmp(argv[i], "scan") == 0 || std::strcmp(argv[i], "watch") == 0)) {
    o->watch = std::strcmp(argv[i], "watch") == 0;
    ++i;
  } else if (i < argc && looksLikeSubcommand(argv[i])) {
    return usageError(std::string("unknown subcommand '") + argv[i] +
                      "' (scan or watch), and no file of that name");
  }
  // The options given, in order, as the user spelt them, for the checks of
  // their combination below.
  std::vector<std::pair<const OptionRule*, std::string>> given;
  bool optionsEnd = false;
  for (; i < argc; ++i) {
    const std::string arg = argv[i];
    if (optionsEnd || arg == "-" || arg.empty() || arg[0] != '-') {
      if (!optionsEnd && (arg == "scan" || arg == "watch") && access(arg.c_str(), F_OK) != 0) {
        return usageError("the subcommand '" + arg + "' comes first, before any option or file");
      }
      o->inputs.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnd = true;
      continue;
    }
    // Each option found in this argument, with its value when it has one.
    std::vector<std::pair<const OptionRule*, std::string>> found;
    std::string spelt;
    if (arg[1] == '-') {
      const size_t equals = arg.find('=');
      spelt = arg.substr(0, equals);
      const OptionRule* rule = findOption(spelt, 0);
      if (!rule) {
        return usageError("unknown option " + spelt);
      }
      if (equals != std::string::npos) {
        if (!*rule->value) {
          return usageError(spelt + " takes no value");
        }
        found.push_back({rule, arg.substr(equals + 1)});
      } else if (*rule->value) {
        // An option where the value should be is a missing value, never a
        // value ("-" alone is standard input).
        if (i + 1 >= argc || (argv[i + 1][0] == '-' && argv[i + 1][1] != '\0' &&
                              !std::isdigit(static_cast<unsigned char>(argv[i + 1][1])))) {
          return usageError(spelt + " needs " + rule->value);
        }
        found.push_back({rule, argv[++i]});
      } else {
        found.push_back({rule, ""});
      }
    } else {
      for (size_t at = 1; at < arg.size(); ++at) {
        const OptionRule* rule = findOption("", arg[at]);
        if (!rule) {
          return usageError(std::string("unknown option -") + arg[at]);
        }
        if (!*rule->value) {
          found.push_back({rule, ""});
          continue;
        }
        if (at + 1 < arg.size()) {
          found.push_back({rule, arg.substr(at + 1)});
        } else if (i + 1 < argc) {
          found.push_back({rule, argv[++i]});
        } else {
          return usageError(std::string("-") + arg[at] + " (" + rule->name + ") needs " +
                            rule->value);
        }
        break;
      }
    }
    for (const auto& option : found) {
      const int status =
          apply(*option.first, *option.first->value ? option.second.c_str() : NULL, o);
      if (status >= 0) {
        return status;
      }
      given.push_back(option);
    }
  }
  // Options that would do nothing in the chosen mode are refused.
  bool fast = false, bitrate = false;
  for (const auto& option : given) {
    const std::string name = option.first->name;
    fast = fast || name == "--fast";
    bitrate = bitrate || name == "--bitrate";
    if (option.first->scope == kWatchOnly && !o->watch) {
      return usageError(name + " applies to watch only");
    }
    if (option.first->scope == kScanOnly && o->watch) {
      return usageError(name + " applies to scan only");
    }
    if (option.first->scope == kSimOnly && !o->adapters.empty()) {
      return usageError(name + " applies to files and network inputs, not to --dvb adapters");
    }
  }
  if (fast && bitrate) {
    return usageError("--fast and --bitrate are two pacings: choose one");
  }
  if (!o->adapters.empty() && !o->inputs.empty()) {
    return usageError("--dvb scans adapters only: no FILE inputs");
  }
#ifndef OSTREL_HAVE_DVB_SERVER
  if (!o->adapters.empty()) {
    return usageError("built without the DVB server: --dvb is not available");
  }
#endif
  if (o->inputs.empty() && o->adapters.empty()) {
    return usageError("no input: give a FILE, -, --tuner FILE or --dvb ADAPTER");
  }
  return -1;
}

void quietLog(int, const char*, const char*, void*) {}

void verboseLog(int, const char*, const char* message, void*) {
  std::lock_guard<std::mutex> lock(s_mutexStderr);
  clearProgress();
  std::fprintf(stderr, "%s\n", message);
}

size_t terminalColumns() {
  struct winsize size;
  if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1) {
    return size.ws_col;
  }
  return 80;
}

// A progress line on a terminal while a scan waits.
class Progress {
 public:
  Progress(bool enabled, TunerInput* tuner, const ChannelScan* scan)
      : m_bEnabled(enabled && tuner), m_pTuner(tuner), m_pScan(scan), m_bStop(false) {
    if (m_bEnabled) {
      m_thread = std::thread(&Progress::run, this);
    }
  }
  ~Progress() {
    m_bStop = true;
    if (m_thread.joinable()) {
      m_thread.join();
      std::lock_guard<std::mutex> lock(s_mutexStderr);
      clearProgress();
    }
  }

 private:
  void run() {
    while (!m_bStop) {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      TunerInput::Progress p = m_pTuner->getProgress();
      ChannelScan::Result r = m_pScan->getResult();
      unsigned int answered = 0;
      for (const auto& q : r.requests)
        answered += q.outcome == ChannelScan::kDelivered || q.outcome == ChannelScan::kFromCache;
      char where[64] = "";
      if (p.size > 0) {
        std::snprintf(where, sizeof(where), "%3.0f%% of %.1f MB, pass %llu",
                      100.0 * static_cast<double>(p.position) / static_cast<double>(p.size),
                      static_cast<double>(p.size) / 1e6,
                      static_cast<unsigned long long>(p.loops + 1));
      } else {
        std::snprintf(where, sizeof(where), "%.1f MB read", static_cast<double>(p.position) / 1e6);
      }
      char line[512];
      std::snprintf(line, sizeof(line), "%s: %s, %u of %zu requests answered",
                    ScanReport::escape(m_pTuner->getName()).c_str(), where, answered,
                    r.requests.size());
      // One column short of the width, so that the terminal never wraps it.
      std::string shown(line);
      const size_t width = terminalColumns() - 1;
      if (shown.size() > width) {
        shown = shown.substr(0, width);
      }
      std::lock_guard<std::mutex> lock(s_mutexStderr);
      std::fprintf(stderr, "\r\033[K%s", shown.c_str());
      std::fflush(stderr);
      s_bProgressShown = true;
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

// What the scan needs of the receiver it drives, whatever its source: the
// simulator's tuners or DVB adapters.
class Receiver {
 public:
  virtual ~Receiver() {}
  virtual GingaServer* server() = 0;
  virtual std::string name(int tunerId) const = 0;
  // Sends the scan's first requests and makes sure the tuner's input is seen.
  virtual void start(ChannelScan* scan, int tunerId) = 0;
  // The tuner's input has ended: nothing new will come (never, live).
  virtual bool ended(int tunerId) const = 0;
  // Why the tuner's input failed, or "".
  virtual std::string error(int tunerId) const = 0;
  // The tuner's player, for the progress line; null when there is none.
  virtual TunerInput* input(int tunerId) const = 0;
  // The health of what the tuner received so far; r names the PIDs asked for.
  virtual StreamHealth health(int tunerId, const ChannelScan::Result& r) const = 0;
};

// The simulator's tuners: a tuner plays once the scan's first requests can
// see it, and requests for what a whole pass did not carry end at once.
class SimReceiver : public Receiver {
 public:
  SimReceiver() : m_sim(new ReceiverSimulator()) {}
  GingaServer* server() override { return m_sim.get(); }
  ReceiverSimulator* sim() { return m_sim.get(); }
  std::string name(int tunerId) const override { return input(tunerId)->getName(); }
  void start(ChannelScan* scan, int) override { scan->startOn(m_sim.get()); }
  bool ended(int tunerId) const override { return input(tunerId)->getProgress().ended; }
  std::string error(int tunerId) const override { return input(tunerId)->getProgress().error; }
  TunerInput* input(int tunerId) const override { return SimulatorTuners::get(*m_sim, tunerId); }
  StreamHealth health(int tunerId, const ChannelScan::Result&) const override {
    return input(tunerId)->getHealth();
  }

 private:
  std::unique_ptr<ReceiverSimulator> m_sim;
};

#ifdef OSTREL_HAVE_DVB_SERVER
// DVB adapters that something else has tuned. Nothing tells how far the
// broadcast has played, so requests for tables it does not carry end at
// their time-outs.
class DvbReceiver : public Receiver {
 public:
  explicit DvbReceiver(const std::vector<std::string>& adapters)
      : m_dvb(adapters, DvbServer::Options()) {}
  GingaServer* server() override { return &m_dvb; }
  std::string name(int tunerId) const override { return m_dvb.getAdapter(tunerId); }
  void start(ChannelScan* scan, int) override {
    scan->start();
    m_dvb.ownRequestsRecorded();  // followed already: no start-up time to wait
  }
  bool ended(int) const override { return false; }
  std::string error(int) const override { return ""; }
  TunerInput* input(int) const override { return NULL; }
  // Kernel section filters: the engine's CRC counts of the PIDs asked for;
  // no packets, so no continuity and no stream time.
  StreamHealth health(int tunerId, const ChannelScan::Result& r) const override {
    StreamHealth health;
    std::set<unsigned short> pids;
    for (const ChannelScan::Request& q : r.requests) {
      pids.insert(static_cast<unsigned short>(q.pid));
    }
    for (unsigned short pid : pids) {
      StreamHealth::Pid row;
      row.pid = pid;
      row.crcErrors = static_cast<long long>(m_dvb.getCrcErrors(tunerId, pid));
      health.pids.push_back(row);
    }
    return health;
  }

 private:
  DvbServer m_dvb;
};
#endif

// Scans one tuner once; prints nothing.
ChannelScan::Result scanTuner(OstrelGingaCommonCore* core, Receiver* receiver, int tunerId,
                              signed char mode, const Options& o, RequestTrace* trace) {
  ChannelScan scan(core, tunerId, mode);
  scan.setTrace(trace);
  {
    Progress progress(!o.quiet && !o.watch && isatty(STDERR_FILENO), receiver->input(tunerId),
                      &scan);
    receiver->start(&scan, tunerId);
    const auto limit = std::chrono::steady_clock::now() +
                       std::chrono::milliseconds(static_cast<long long>(o.timeoutSeconds * 1000));
    while (!scan.waitFor(std::chrono::milliseconds(50)) && !s_iInterrupted &&
           std::chrono::steady_clock::now() < limit) {
    }
  }
  return scan.getResult();
}

// Says on standard error what stayed incomplete.
void warnIncomplete(const ChannelScan::Result& r, int tunerId, const std::string& name) {
  for (const std::string& note : r.incomplete) {
    std::fprintf(stderr, "ostrel-scan: tuner %d (%s): %s incomplete\n", tunerId,
                 ScanReport::escape(name).c_str(), note.c_str());
  }
}

// The JSON of the tuners so far, for --save-json.
std::vector<std::string> s_vecJsonFile;

// A scan cut short by a signal says so: a line after the tables, a field of
// the JSON object. Text and JSON are written of one model.
void print(const ChannelScan::Result& r, const StreamHealth& health, const Options& o,
           const std::string& heading, bool interrupted) {
  const ReportModel model = ScanReport::model(r, &health, o.latencies);
  if (o.json || !o.jsonPath.empty()) {
    std::string json = ScanReport::json(model);
    if (interrupted) {
      json.insert(json.find('{') + 1, "\n  \"interrupted\": true,");
    }
    if (o.json) {
      errno = 0;
      std::cout << json;
      flushOutput();  // while errno still says why a write failed
    }
    s_vecJsonFile.push_back(json);
  }
  if (!o.json) {
    std::cout << heading << "\n\n"
              << ScanReport::channelTable(model) << "\n"
              << ScanReport::requestTable(model);
    if (o.health) {
      std::cout << "\n" << ScanReport::healthTable(model);
    }
    if (interrupted) {
      std::cout << "\nInterrupted: the scan of this tuner was cut short\n";
    }
  }
  flushOutput();
}

// Writes --save-json: one object for one tuner, an array for several. False
// when it cannot be written (said on standard error).
bool writeJsonFile(const Options& o, int tuners) {
  if (o.jsonPath.empty()) {
    return true;
  }
  std::FILE* out = std::fopen(o.jsonPath.c_str(), "w");
  bool ok = out != NULL;
  if (out) {
    std::string text = tuners > 1 ? "[\n" : "";
    for (size_t i = 0; i < s_vecJsonFile.size(); ++i) {
      text += (i ? ",\n" : "") + s_vecJsonFile[i];
    }
    text += tuners > 1 ? "]\n" : "";
    ok = std::fwrite(text.data(), 1, text.size(), out) == text.size();
    ok = std::fclose(out) == 0 && ok;
  }
  if (!ok) {
    std::fprintf(stderr, "ostrel-scan: cannot write %s: %s\n",
                 ScanReport::escape(o.jsonPath).c_str(), std::strerror(errno ? errno : EIO));
  }
  return ok;
}

// One tuner's result in a list of tuners: what stayed incomplete and a missing
// PAT on standard error, the table (or JSON object) on standard output, after
// a separator when others came before (printed of them). False when no PAT
// arrived.
bool report(const ChannelScan::Result& r, const StreamHealth& health, const Options& o, int printed,
            int tunerId, const std::string& name, bool interrupted) {
  warnIncomplete(r, tunerId, name);
  if (!r.hasPat && !interrupted) {
    std::fprintf(stderr, "ostrel-scan: tuner %d (%s): no PAT arrived\n", tunerId,
                 ScanReport::escape(name).c_str());
  }
  if (printed > 0)
    std::cout << (o.json ? ",\n" : "\n");
  print(r, health, o, "Tuner " + std::to_string(tunerId) + ": " + ScanReport::escape(name),
        interrupted);
  return r.hasPat;
}

// Whether every table the scan needed came whole: the PAT, NIT and SDT that
// came, and every PMT the PAT names.
bool whole(const ChannelScan::Result& r) {
  for (const ChannelScan::Service& s : r.services) {
    if (s.inPat && s.pmt != ChannelScan::kDelivered && s.pmt != ChannelScan::kFromCache)
      return false;
  }
  return r.hasPat && r.incomplete.empty();
}

// The tuners the core lists; says so on standard error when there are none.
std::vector<int> listTuners(OstrelGingaCommonCore* core) {
  int* ids = NULL;
  unsigned char* types = NULL;
  short error = 0;
  const int count = core->getTunerList(&ids, &types, &error);
  std::vector<int> tuners(ids, ids + (count > 0 ? count : 0));
  std::free(ids);
  std::free(types);
  if (tuners.empty()) {
    std::fprintf(stderr, "ostrel-scan: no tuner answered (error %d)\n", error);
  }
  return tuners;
}

// Writes the channel file of what the tuners found, when asked; false when
// it cannot be written (said on standard error).
bool writeChannels(const Options& o, const std::vector<ChannelScan::Result>& results,
                   bool notes = true) {
  if (o.channelsPath.empty())
    return true;
  for (const std::string& note : notes ? ChannelFiles::gaps(results) : std::vector<std::string>())
    std::fprintf(stderr, "ostrel-scan: channel file: %s\n", note.c_str());
  std::string error;
  const ChannelFiles::Format format = o.channelsFormat < 0
                                          ? ChannelFiles::formatOf(o.channelsPath)
                                          : static_cast<ChannelFiles::Format>(o.channelsFormat);
  if (!ChannelFiles::write(o.channelsPath, format, results, &error)) {
    std::fprintf(stderr, "ostrel-scan: cannot write %s\n", ScanReport::escape(error).c_str());
    return false;
  }
  return true;
}

int runScan(OstrelGingaCommonCore* core, Receiver* receiver, const Options& o,
            RequestTrace* trace) {
  const std::vector<int> tuners = listTuners(core);
  const int count = static_cast<int>(tuners.size());
  int status = tuners.empty() ? kExitInput : kExitOk;
  if (o.json && count > 1)
    std::cout << "[\n";
  int printed = 0;
  std::vector<ChannelScan::Result> results;
  for (int t = 0; t < count; ++t) {
    // On a signal, the tuner being scanned reports what it has; those after
    // it are not scanned.
    ChannelScan::Result r = scanTuner(core, receiver, tuners[t], 1, o, trace);
    const bool interrupted = s_iInterrupted != 0;
    if (!interrupted) {
      results.push_back(r);  // the channel file is written of whole scans only
    }
    const std::string error = receiver->error(tuners[t]);
    if (!error.empty()) {
      std::fprintf(stderr, "ostrel-scan: %s\n", ScanReport::escape(error).c_str());
    }
    if (!error.empty() && !r.hasPat) {
      status = kExitInput;  // an input that failed has no table to show
    } else if (!report(r, receiver->health(tuners[t], r), o, printed++, tuners[t],
                       receiver->name(tuners[t]), interrupted) &&
               status != kExitInput && !interrupted) {
      status = error.empty() ? kExitNoPat : kExitInput;
    } else if (status == kExitOk && !whole(r)) {
      status = kExitIncomplete;
    }
    if (interrupted) {
      break;
    }
  }
  if (o.json && count > 1)
    std::cout << "]\n";
  if (!writeJsonFile(o, count))
    return kExitInput;
  if (!s_iInterrupted && !writeChannels(o, results))
    return kExitInput;
  return status;
}

int runWatch(OstrelGingaCommonCore* core, Receiver* receiver, const Options& o,
             RequestTrace* trace) {
  const std::vector<int> tuners = listTuners(core);
  if (tuners.empty()) {
    return kExitInput;
  }
  std::vector<std::string> last(tuners.size());
  bool anyPat = false;
  for (long round = 0; !s_iInterrupted && (o.rounds < 0 || round < o.rounds); ++round) {
    auto started = std::chrono::steady_clock::now();
    std::vector<ChannelScan::Result> results;
    for (size_t t = 0; t < tuners.size() && !s_iInterrupted; ++t) {
      // After the first round, ask the receiver each time: the cache would
      // keep answering with what it has.
      ChannelScan::Result r = scanTuner(core, receiver, tuners[t], round == 0 ? 1 : 2, o, trace);
      if (s_iInterrupted) {
        break;  // a round cut short is no change
      }
      anyPat = anyPat || r.hasPat;
      results.push_back(r);
      if (round == 0) {
        warnIncomplete(r, tuners[t], receiver->name(tuners[t]));
      }
      std::string table = o.json ? ScanReport::json(r, false) : ScanReport::channelTable(r);
      if (table != last[t]) {
        if (o.json) {
          std::cout << table;
        } else {
          std::cout << localClock() << " tuner " << tuners[t] << (round == 0 ? "" : ": changed")
                    << "\n"
                    << table << "\n";
        }
        flushOutput();
        last[t] = table;
      } else if (!o.json) {
        std::cout << localClock() << " tuner " << tuners[t] << ": no change\n";
        flushOutput();
      }
    }
    // The channel file follows each whole round.
    if (!s_iInterrupted && !writeChannels(o, results, round == 0))
      return kExitInput;
    // An input that has ended says nothing new.
    bool allEnded = true;
    for (size_t t = 0; t < tuners.size(); ++t) {
      allEnded = allEnded && receiver->ended(tuners[t]);
    }
    if (allEnded) {
      break;
    }
    while (!s_iInterrupted && std::chrono::steady_clock::now() - started <
                                  std::chrono::duration<double>(o.intervalSeconds)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  return anyPat ? kExitOk : kExitNoPat;
}

// The end of a run: the server goes first, so that nothing is delivered any
// more (a DVB server closes its filters); then the requests still followed are
// dropped and their user data released, and the trace is written. Gives the
// exit status.
int finish(std::unique_ptr<Receiver> receiver, RequestTrace* trace, const Options& o, int status) {
  receiver.reset();
  RequestFollower::destroy();
  ostrel_log_set_sink(NULL, NULL);
  bool written = true;
  if (trace && !trace->writeTo(o.tracePath)) {
    std::fprintf(stderr, "ostrel-scan: cannot write %s: %s\n",
                 ScanReport::escape(o.tracePath).c_str(), std::strerror(errno ? errno : EIO));
    written = false;
  }
  flushOutput();
  if (s_iOutputError) {
    std::fprintf(stderr, "ostrel-scan: cannot write standard output: %s\n",
                 std::strerror(s_iOutputError));
    written = false;
  }
  if (s_iInterrupted) {
    return 128 + s_iInterrupted;
  }
  return written ? status : kExitInput;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  int parsed = parse(argc, argv, &o);
  if (parsed >= 0) {
    return parsed;
  }
  ostrel_log_set_sink(o.verbose ? &verboseLog : &quietLog, NULL);
  // Output files are checked before the scan, not found unwritable after it.
  for (const std::string& path : {o.tracePath, o.jsonPath}) {
    if (path.empty()) {
      continue;
    }
    std::FILE* out = std::fopen(path.c_str(), "a");
    if (!out) {
      std::fprintf(stderr, "ostrel-scan: cannot write %s: %s\n", ScanReport::escape(path).c_str(),
                   std::strerror(errno));
      return kExitInput;
    }
    std::fclose(out);
  }
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  std::unique_ptr<RequestTrace> trace(o.tracePath.empty() ? NULL : new RequestTrace());
  std::unique_ptr<Receiver> receiver;
#ifdef OSTREL_HAVE_DVB_SERVER
  if (!o.adapters.empty()) {
    // An adapter that cannot be opened is named, with the system's reason.
    for (const std::string& adapter : o.adapters) {
      for (const char* device : {"/frontend0", "/demux0"}) {
        const std::string path = adapter + device;
        const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
          std::fprintf(stderr, "ostrel-scan: %s: %s\n", ScanReport::escape(path).c_str(),
                       std::strerror(errno));
          return kExitInput;
        }
        ::close(fd);
      }
    }
    receiver.reset(new DvbReceiver(o.adapters));
  }
#endif
  if (!receiver) {
    std::unique_ptr<SimReceiver> sim(new SimReceiver());
    sim->sim()->setFaultPlan(o.faults);
    for (const std::string& input : o.inputs) {
      std::string error;
      std::unique_ptr<TransportStreamSource> source =
          TransportStreamSource::openFile(input, &error);
      if (!source) {
        std::fprintf(stderr, "ostrel-scan: %s\n", ScanReport::escape(error).c_str());
        return kExitInput;
      }
      source->setLoop(o.loop);
      // A network input comes in real time already.
      const bool live = source->isNetwork();
      sim->sim()->setPacing(live ? ReceiverSimulator::kAsFastAsPossible : o.pacing, o.bitRate);
      SimulatorTuners::add(sim->sim(), std::move(source));
    }
    receiver = std::move(sim);
  }
  struct sigaction action;
  std::memset(&action, 0, sizeof(action));
  action.sa_handler = onInterrupt;
  action.sa_flags = SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, NULL);
  sigaction(SIGTERM, &action, NULL);

  core->setServer(receiver->server());
  receiver->server()->setDataDestination(core);
  const int status = o.watch ? runWatch(core, receiver.get(), o, trace.get())
                             : runScan(core, receiver.get(), o, trace.get());
  return finish(std::move(receiver), trace.get(), o, status);
}
