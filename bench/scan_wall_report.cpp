// The wall time of a whole scan of a capture, start to exit: ostrel-scan
// --fast --once against a plain libdvbpsi program (dvbpsi_tables) reading the
// same file's tables, each run as a process of its own, interleaved, their
// output discarded; medians of kRuns runs each.
//
//   scan_wall_report OSTREL_SCAN DVBPSI_TABLES FILE.ts
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

extern char** environ;

namespace {

const int kRuns = 21;
const double kAim = 1.5;

// Milliseconds from the start of argv to its exit; negative when it failed.
double runMs(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  for (const std::string& arg : argv) {
    args.push_back(const_cast<char*>(arg.c_str()));
  }
  args.push_back(NULL);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", 01, 0);  // O_WRONLY
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", 01, 0);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = -1;
  int status = -1;
  const bool ran = posix_spawn(&pid, args[0], &actions, NULL, &args[0], environ) == 0 &&
                   waitpid(pid, &status, 0) == pid;
  const double ms =
      std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  posix_spawn_file_actions_destroy(&actions);
  return ran && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? ms : -1;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const char* kWhat = "ostrel-scan --fast --once of a capture / libdvbpsi, wall";
  if (argc != 4) {
    std::fprintf(stderr, "usage: scan_wall_report OSTREL_SCAN DVBPSI_TABLES FILE.ts\n");
    return 2;
  }
  const std::vector<std::string> scan = {argv[1], "--fast", "--once", "--quiet", argv[3]};
  const std::vector<std::string> plain = {argv[2], argv[3]};
  std::vector<double> ours, reference;
  for (int i = 0; i < kRuns; ++i) {
    const double a = runMs(scan), b = runMs(plain);
    if (a < 0 || b < 0) {
      std::printf("%-58s not measured (a run failed)\n", kWhat);
      return 0;
    }
    ours.push_back(a);
    reference.push_back(b);
  }
  const double a = median(ours), b = median(reference), ratio = a / b;
  std::printf("%-58s %10.1f ms  reference %8.1f ms  ratio %.2f (at most %.1f: %s)\n", kWhat, a, b,
              ratio, kAim, ratio <= kAim ? "met" : "NOT met");
  return 0;
}
