// ostrel-dvb-emu: emulated Linux DVB adapters over FUSE, fed by transport-stream files.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "DvbEmulator.h"

namespace {

const char kUsage[] =
    "usage: ostrel-dvb-emu --root DIR --adapter FILE.ts [--adapter FILE.ts...]\n"
    "                      [--fast | --bitrate BPS] [--once] [--start-with N] [--filters N] "
    "[--frequency HZ]\n"
    "                      [--fault [ADAPTER:]KIND[=VALUE]...] [--seed N]\n"
    "                      [--ready-file PATH] [--verbose]\n"
    "Serves DIR/adapterN/demux0, frontend0 and dvr0, one adapter per FILE\n"
    "(looping; played once with --once). Faults (KIND=VALUE):\n"
    "  refuse-filter[=PID]  DMX_SET_FILTER fails with EINVAL (for PID, or any)\n"
    "  read-error=N         every read after N sections fails with EIO\n"
    "  crc=SHARE            that share (0..1) of long-form sections has a bad CRC\n"
    "  remove=SECONDS       the adapter disappears (ENODEV, POLLERR)\n"
    "Prints \"ready DIR\" on standard output once mounted; runs until SIGINT/SIGTERM.\n";

bool parseNumber(const char* text, double* out) {
  char* end = nullptr;
  *out = strtod(text, &end);
  if (end == text || *end != '\0') {
    // Hexadecimal PIDs.
    *out = static_cast<double>(strtol(text, &end, 0));
    return end != text && *end == '\0';
  }
  return true;
}

bool parseFault(const std::string& text, Ostrel::DvbFault* fault) {
  std::string rest = text;
  size_t colon = rest.find(':');
  if (colon != std::string::npos) {
    fault->adapter = atoi(rest.substr(0, colon).c_str());
    rest = rest.substr(colon + 1);
  }
  size_t eq = rest.find('=');
  std::string kind = rest.substr(0, eq);
  bool hasValue = eq != std::string::npos;
  if (hasValue && !parseNumber(rest.c_str() + eq + 1, &fault->value)) {
    return false;
  }
  if (kind == "refuse-filter") {
    fault->kind = Ostrel::DvbFault::kRefuseFilter;
    return !hasValue || (fault->value >= 0 && fault->value <= 0x1FFF);
  }
  if (kind == "read-error") {
    fault->kind = Ostrel::DvbFault::kReadError;
    return hasValue && fault->value >= 0;
  }
  if (kind == "crc") {
    fault->kind = Ostrel::DvbFault::kCrc;
    return hasValue && fault->value >= 0 && fault->value <= 1;
  }
  if (kind == "remove") {
    fault->kind = Ostrel::DvbFault::kRemove;
    return hasValue && fault->value >= 0;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  Ostrel::DvbEmuOptions options;
  std::string readyFile;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    bool hasNext = i + 1 < argc;
    if (arg == "--fast") {
      options.fast = true;
    } else if (arg == "--once") {
      options.once = true;
    } else if (arg == "--verbose") {
      options.verbose = true;
    } else if (arg == "--help" || arg == "-h") {
      fputs(kUsage, stdout);
      return 0;
    } else if (hasNext && arg == "--root") {
      options.root = argv[++i];
    } else if (hasNext && arg == "--adapter") {
      options.adapters.push_back(argv[++i]);
    } else if (hasNext && arg == "--bitrate") {
      options.bitRate = strtoull(argv[++i], nullptr, 10);
    } else if (hasNext && arg == "--start-with") {
      options.startWith = static_cast<unsigned int>(strtoul(argv[++i], nullptr, 10));
    } else if (hasNext && arg == "--filters") {
      options.filters = static_cast<unsigned int>(strtoul(argv[++i], nullptr, 10));
    } else if (hasNext && arg == "--frequency") {
      options.frequency = static_cast<uint32_t>(strtoul(argv[++i], nullptr, 10));
    } else if (hasNext && arg == "--seed") {
      options.seed = static_cast<unsigned int>(strtoul(argv[++i], nullptr, 10));
    } else if (hasNext && arg == "--ready-file") {
      readyFile = argv[++i];
    } else if (hasNext && arg == "--fault") {
      Ostrel::DvbFault fault;
      if (!parseFault(argv[++i], &fault)) {
        fprintf(stderr, "ostrel-dvb-emu: bad fault '%s'\n%s", argv[i], kUsage);
        return 2;
      }
      options.faults.push_back(fault);
    } else {
      fprintf(stderr, "ostrel-dvb-emu: unexpected '%s'\n%s", arg.c_str(), kUsage);
      return 2;
    }
  }
  if (options.root.empty() || options.adapters.empty() || options.bitRate == 0 ||
      options.filters == 0) {
    fputs(kUsage, stderr);
    return 2;
  }
  Ostrel::DvbEmulator emulator(options);
  std::string error;
  if (!emulator.mount(&error)) {
    fprintf(stderr, "ostrel-dvb-emu: %s\n", error.c_str());
    return 1;
  }
  if (!readyFile.empty()) {
    FILE* f = fopen(readyFile.c_str(), "w");
    if (f) {
      fprintf(f, "%s\n", options.root.c_str());
      fclose(f);
    }
  }
  printf("ready %s\n", options.root.c_str());
  fflush(stdout);
  return emulator.run();
}
