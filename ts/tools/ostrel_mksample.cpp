// Writes the sample transport stream (see SampleStream.h) to a file.
#include <cstdio>
#include <cstring>
#include <vector>

#include "SampleStream.h"

namespace {

const char kUsage[] =
    "usage: ostrel-mksample [--every-pmt] OUTPUT.ts\n"
    "\n"
    "Writes the sample ISDB-Tb multiplex to OUTPUT.ts: 1,000,160 bytes, two\n"
    "seconds at 4 Mbit/s that loop seamlessly. Network \"Rede Ostrel\" (0x0640),\n"
    "four programmes in the PAT (full-seg HD, data, one-seg, and \"Ostrel Extra\"\n"
    "whose PMT is never carried), NIT and SDT in two sections each, a TOT, and\n"
    "stand-in audio and video. Scan it with ostrel-scan OUTPUT.ts.\n"
    "\n"
    "  --every-pmt    carry Ostrel Extra's PMT too: a scan then waits for no\n"
    "                 time-out\n"
    "  -h, --help     print this help\n"
    "  -V, --version  print the version\n"
    "\n"
    "Exit status: 0 when written, 1 when the file cannot be written, 2 on a\n"
    "usage error.\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (argc == 2 && (std::strcmp(argv[1], "--version") == 0 || std::strcmp(argv[1], "-V") == 0)) {
    std::printf("ostrel-mksample %s\n", OSTREL_VERSION);
    return 0;
  }
  // [--every-pmt] OUTPUT.ts; an option in OUTPUT's place is named.
  const bool everyPmt = argc >= 2 && std::strcmp(argv[1], "--every-pmt") == 0;
  const int given = argc - 1 - (everyPmt ? 1 : 0);
  const char* path = argv[argc - 1];
  const char* first = argv[everyPmt ? 2 : 1];
  if (given >= 1 && first[0] == '-' && first[1] != '\0') {
    std::fprintf(stderr, "ostrel-mksample: unknown option %s; try 'ostrel-mksample --help'\n",
                 first);
    return 2;
  }
  if (given != 1) {
    std::fprintf(stderr, "ostrel-mksample: give one OUTPUT.ts; try 'ostrel-mksample --help'\n");
    return 2;
  }
  std::vector<unsigned char> stream = Ostrel::SampleStream::build(everyPmt);
  std::FILE* out = std::fopen(path, "wb");
  if (!out) {
    std::perror(path);
    return 1;
  }
  bool ok = std::fwrite(stream.data(), 1, stream.size(), out) == stream.size();
  ok = std::fclose(out) == 0 && ok;
  if (!ok) {
    std::perror(path);
    return 1;
  }
  return 0;
}
