#ifndef OSTREL_TEST_EMULATED_ADAPTER_H
#define OSTREL_TEST_EMULATED_ADAPTER_H

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

// Why the emulator cannot mount here (not root, no /dev/fuse), or "".
inline std::string emulatorUnavailable() {
  std::string why;
  if (geteuid() != 0) {
    why += " Not root: the emulator mounts a FUSE file system, which needs root.";
  }
  if (access("/dev/fuse", R_OK | W_OK) != 0) {
    why += std::string(" /dev/fuse: ") + strerror(errno) + ".";
  }
  return why.empty() ? why : "The emulated DVB adapter cannot run here." + why;
}

// ostrel-dvb-emu serving one adapter from stream, with options (faults);
// stopped on destruction. The shell prints its pid, then becomes the emulator.
struct Emulator {
  Emulator(const std::string& stream, const std::string& options) {
    char root[] = "/tmp/dvb-server-test-XXXXXX";
    m_root = mkdtemp(root);
    const std::string run = "echo $$; exec " OSTREL_DVB_EMU " --root " + m_root + " --adapter ";
    m_out = popen((run + stream + options).c_str(), "r");
    char line[64] = "";
    ok = fscanf(m_out, "%d ", &m_pid) == 1 && fgets(line, sizeof(line), m_out) &&
         !strncmp(line, "ready", 5);
  }
  ~Emulator() { kill(m_pid, SIGTERM), pclose(m_out), rmdir(m_root.c_str()); }
  std::string adapter() const { return m_root + "/adapter0"; }
  bool ok = false;
  std::string m_root;
  FILE* m_out;
  pid_t m_pid = -1;
};

#endif  // OSTREL_TEST_EMULATED_ADAPTER_H
