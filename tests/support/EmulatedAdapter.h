#ifndef OSTREL_TEST_EMULATED_ADAPTER_H
#define OSTREL_TEST_EMULATED_ADAPTER_H

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

// ostrel-dvb-emu serving one adapter from stream, with options (faults);
// stopped on destruction. The shell prints its pid, then becomes the emulator.
// When ok is false, the emulator has said why on standard error (it cannot
// mount without root and /dev/fuse; dvb_needs.sh checks them first).
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
