// Sections per second through the emulated DVB demux to injectData, against
// a bare reader of the same demux filter: the emulator (ostrel-dvb-emu
// --fast, real system calls through FUSE) plays the delivery stream
// (DeliveryStream.h) as fast as its readers take sections; the DVB server
// injects each into a counting destination that asks again from each
// injection, while the reference opens the same filter (DMX_SET_FILTER on the
// PID, every section passing, the same buffer size) and reads sections in a
// poll loop (after each poll, every section the filter holds), no engine. Medians of interleaved
// runs against one emulator. Needs root and /dev/fuse, in a private mount namespace (bench/run
// starts it with unshare -m); prints "not measured" and exits 0 without.
//
//   dvb_delivery_report OSTREL_DVB_EMU
#include <fcntl.h>
#include <linux/dvb/dmx.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "DeliveryStream.h"
#include "DvbServer.h"
#include "OstrelLogger.h"

using namespace Ostrel;
using namespace OstrelBench;

namespace {

const unsigned int kCounted = 8000;
const int kRuns = 5;
const double kAim = 0.8;

// The bare reader: sections per second between the first and the
// kCounted-th; 0 when the filter cannot be set or sections stop coming.
double bareReader(const std::string& demux) {
  const int fd = open(demux.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    return 0;
  }
  struct dmx_sct_filter_params params;
  std::memset(&params, 0, sizeof(params));
  params.pid = kDeliveryPid;
  params.flags = DMX_IMMEDIATE_START;
  double rate = 0;
  if (ioctl(fd, DMX_SET_BUFFER_SIZE, static_cast<unsigned long>(DvbServer::Options().bufferSize)) ==
          0 &&
      ioctl(fd, DMX_SET_FILTER, &params) == 0) {
    unsigned char buffer[4096];
    unsigned int seen = 0;
    Clock::time_point first;
    while (seen < kCounted) {
      struct pollfd wait = {fd, POLLIN, 0};
      if (poll(&wait, 1, 5000) <= 0) {
        break;
      }
      // Every section the filter holds, then poll again.
      while (seen < kCounted && read(fd, buffer, sizeof(buffer)) > 0) {
        if (++seen == 1) {
          first = Clock::now();
        }
      }
    }
    if (seen == kCounted) {
      rate = (kCounted - 1) / std::chrono::duration<double>(Clock::now() - first).count();
    }
  }
  close(fd);
  return rate;
}

void quiet(int, const char*, const char*, void*) {}

}  // namespace

int main(int argc, char** argv) {
  const char* kWhat = "sections through the emulated DVB demux / bare reader";
  ostrel_log_set_sink(&quiet, NULL);
  const Bytes stream = deliveryStream();
  char root[] = "/tmp/dvb-bench-XXXXXX";
  const std::string file = std::string(mkdtemp(root)) + ".ts";
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(&stream[0]),
             static_cast<std::streamsize>(stream.size()));
  const std::string command = std::string("echo $$; exec ") + (argc > 1 ? argv[1] : "false") +
                              " --fast --root " + root + " --adapter " + file + " 2>/dev/null";
  FILE* out = popen(command.c_str(), "r");
  int pid = -1;
  char line[64] = "";
  std::vector<double> ours, bare;
  if (std::fscanf(out, "%d ", &pid) == 1 && std::fgets(line, sizeof(line), out) &&
      std::string(line).rfind("ready", 0) == 0) {
    const std::string adapter = std::string(root) + "/adapter0";
    for (int i = 0; i < kRuns; ++i) {
      bare.push_back(bareReader(adapter + "/demux0"));
      DvbServer dvb(std::vector<std::string>(1, adapter), DvbServer::Options());
      ours.push_back(measureDelivery(&dvb, kCounted, [] {}));
    }
  }
  if (pid > 0) {
    kill(pid, SIGTERM);
  }
  pclose(out);
  rmdir(root);
  unlink(file.c_str());
  ostrel_log_set_sink(NULL, NULL);
  const double a = median(ours), b = median(bare);
  if (a == 0 || b == 0) {
    std::printf("%-58s not measured (needs root, /dev/fuse, ostrel-dvb-emu)\n", kWhat);
    return 0;
  }
  const double ratio = a / b;
  std::printf("%-58s %10.0f /s  reference %8.0f /s  ratio %.2f (at least %.1f: %s)\n", kWhat, a, b,
              ratio, kAim, ratio >= kAim ? "met" : "NOT met");
  return 0;
}
