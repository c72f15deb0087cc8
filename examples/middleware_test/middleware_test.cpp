// A middleware's own test against the simulated receiver, built from the
// installed package alone. It binds the simulator to the core, plays a stream
// (the sample stream, or the file named on the command line), asks for the
// PAT and then a PMT as a middleware does, checks what comes back, and checks
// that a request for a table the stream does not carry times out.
// Exits 0 when every check passes.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <OstrelGingaCommonCore.h>
#include <ReceiverSimulator.h>
#include <RequestFollower.h>
#include <SampleStream.h>
#include <TPATTable.h>
#include <TPMTTable.h>

using namespace Ostrel;

namespace {

// What a notification brought: the table is lent for the callback only, so
// the callback copies out what the test checks.
struct Answer {
  int status = -1;  // 0 table delivered, 1 timed out
  unsigned int section = 0, lastSection = 0;
  std::map<unsigned short, unsigned short> programs;  // PAT: programme -> PMT PID
  unsigned short programNumber = 0, pcrPid = 0;       // PMT
  std::vector<unsigned short> streamPids;             // PMT
};

std::mutex s_mutex;
std::condition_variable s_answered;
std::map<unsigned int, Answer> s_answers;  // by request id
// The PAT, gathered section by section by requests 1 to 8.
const unsigned int kFirstPatRequest = 1, kLastPatRequest = 8;
std::vector<bool> s_patSeen;                          // by section number
std::map<unsigned short, unsigned short> s_programs;  // programme -> PMT PID
bool s_patDone = false;

void askForPat(unsigned int requestId) {
  short error = 0;
  if (!OstrelGingaCommonCore::getInstance()->requestData(
          requestId, 2, 0, 0x0000, TPATTable::kTableId, 0, nullptr, nullptr, &error)) {
    std::printf("requestData failed with error %d\n", error);
    std::lock_guard<std::mutex> lock(s_mutex);
    s_patDone = true;
    s_answered.notify_all();
  }
}

// The core calls this on the simulator's delivery thread (status 0) or on
// its time-out thread (status 1).
int onNotification(unsigned int requestId, unsigned char status, void*, TISDBTTable* table) {
  Answer answer;
  answer.status = status;
  if (TPATTable* pat = dynamic_cast<TPATTable*>(table)) {
    answer.section = pat->getSectionNumber();
    answer.lastSection = pat->getLastSectionNumber();
    for (unsigned int i = 0; i < pat->getProgramCount(); ++i)
      answer.programs[pat->getProgram(i).programNumber] = pat->getProgram(i).pid;
  } else if (TPMTTable* pmt = dynamic_cast<TPMTTable*>(table)) {
    answer.programNumber = pmt->getProgramNumber();
    answer.pcrPid = pmt->getPcrPid();
    for (unsigned int i = 0; i < pmt->getStreamCount(); ++i)
      answer.streamPids.push_back(pmt->getStream(i).getPid());
  }
  bool morePat = false;
  {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_answers[requestId] = answer;
    if (requestId >= kFirstPatRequest && requestId <= kLastPatRequest) {
      if (status == 0) {
        s_patSeen.resize(std::max<size_t>(s_patSeen.size(), answer.lastSection + 1u), false);
        s_patSeen[answer.section] = true;
        s_programs.insert(answer.programs.begin(), answer.programs.end());
      }
      morePat = status == 0 && requestId < kLastPatRequest &&
                std::count(s_patSeen.begin(), s_patSeen.end(), false);
      s_patDone = !morePat;
    }
    s_answered.notify_all();
  }
  // The next PAT section is asked for from here, with no lock of ours held: a
  // request made on the delivery thread sees the very next section of the
  // stream, where one made after waking the main thread could keep missing
  // the section that follows right behind.
  if (morePat)
    askForPat(requestId + 1);
  return 1;
}

// Asks the receiver (mode 2: not the cache) for a table and waits for the
// notification; status -1 when none came within 10 s.
Answer ask(unsigned int requestId, short pid, short tableId, short tableIdExt) {
  short error = 0;
  if (!OstrelGingaCommonCore::getInstance()->requestData(requestId, 2, 0, pid, tableId, tableIdExt,
                                                         nullptr, nullptr, &error)) {
    std::printf("requestData failed with error %d\n", error);
    return Answer();
  }
  std::unique_lock<std::mutex> lock(s_mutex);
  s_answered.wait_for(lock, std::chrono::seconds(10), [&] { return s_answers.count(requestId); });
  return s_answers.count(requestId) ? s_answers[requestId] : Answer();
}

int s_failures = 0;
void check(bool ok, const std::string& what) {
  std::printf("%s %s\n", ok ? "ok  " : "FAIL", what.c_str());
  s_failures += ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const bool sample = argc < 2;
  {
    // The receiver: one tuner that plays the stream in real time, looping.
    ReceiverSimulator receiver;
    receiver.setPacing(ReceiverSimulator::kByPcr, 0);
    std::string error;
    if (sample) {
      receiver.addMemoryTuner(SampleStream::build(), "sample", true);
    } else if (receiver.addFileTuner(argv[1], true, &error) < 0) {
      std::printf("cannot play %s: %s\n", argv[1], error.c_str());
      return 2;
    }

    // Bind it both ways: the core sends commands to the receiver, and the
    // receiver delivers sections to the core.
    OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
    core->setServer(&receiver);
    receiver.setDataDestination(core);
    core->setRequestNotificationCallback(onNotification);
    receiver.start();

    // The PAT, section by section (the sample's has two), until all are in.
    askForPat(kFirstPatRequest);
    std::vector<bool> seen;
    std::map<unsigned short, unsigned short> programs;
    {
      std::unique_lock<std::mutex> lock(s_mutex);
      s_answered.wait_for(lock, std::chrono::seconds(10), [] { return s_patDone; });
      seen = s_patSeen;
      programs = s_programs;
    }
    check(!seen.empty() && !std::count(seen.begin(), seen.end(), false),
          "every PAT section arrived");
    programs.erase(0);  // programme 0 names the network PID, not a PMT
    check(!programs.empty(), "the PAT lists programmes");

    if (sample) {
      check(programs.size() == 4 && programs[SampleStream::kHdService] == SampleStream::kHdPmtPid &&
                programs[SampleStream::kOneSegService] == SampleStream::kOneSegPmtPid,
            "the sample's four programmes and their PMT PIDs");
    }

    // A programme's PMT, on the PID the PAT gave for it.
    if (!programs.empty()) {
      const unsigned short program = sample ? SampleStream::kHdService : programs.begin()->first;
      Answer pmt = ask(100, programs[program], TPMTTable::kTableId, program);
      check(pmt.status == 0 && pmt.programNumber == program, "the PMT of the programme");
      if (sample) {
        check(pmt.pcrPid == SampleStream::kPcrPid && pmt.streamPids.size() == 3,
              "the HD programme's PCR PID and its three streams");
      }
    }

    // A PMT that is not carried: the request times out (status 1).
    const unsigned short missingPid = sample ? SampleStream::kMissingPmtPid : 0x1FFE;
    const unsigned short missingProgram = sample ? SampleStream::kMissingService : 0xFFFF;
    Answer missing = ask(200, missingPid, TPMTTable::kTableId, static_cast<short>(missingProgram));
    check(missing.status == 1, "a table the stream does not carry times out");
  }  // the receiver goes first, so that nothing is delivered any more
  RequestFollower::destroy();
  std::printf("middleware test: %s\n", s_failures ? "FAILED" : "all checks passed");
  return s_failures ? 1 : 0;
}
