// The integration guide's server at work: the server engine over FileSource,
// which plays a transport-stream file, bound to the core as a receiver
// integration would bind its server. Asks for the PAT, then from the PAT's
// notification for every PMT it names, and for one PMT that no stream carries.
// Prints what comes back; exits 0 when the PAT came and every request ended,
// answered or timed out, and the uncarried one timed out.
//   file_server FILE.ts [BIT_RATE]
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include <OstrelGingaCommonCore.h>
#include <ServerEngine.h>
#include <TPATTable.h>
#include <TPMTTable.h>

#include "FileSource.h"

namespace {

const unsigned int kPatRequest = 1;
const unsigned int kUncarriedRequest = 2;
const short kUncarriedPid = 0x1FF0;

std::mutex s_mutex;
std::condition_variable s_condDone;
int s_iPending = 0;  // requests neither answered nor timed out
bool s_bPatCame = false;
bool s_bUncarriedTimedOut = false;

// Counted before it is made, as its notification may come first. No lock of ours is
// held around the call: a time-out notification holds the core's registry lock while
// it takes s_mutex, and requestData takes that registry lock.
void request(unsigned int id, short pid, short tableId, short tableIdExt) {
  {
    std::lock_guard<std::mutex> lock(s_mutex);
    ++s_iPending;
  }
  short error = 0;
  if (!Ostrel::OstrelGingaCommonCore::getInstance()->requestData(id, 2, 0, pid, tableId, tableIdExt,
                                                                 NULL, NULL, &error)) {
    std::printf("request %u refused: error %d\n", id, error);
    std::lock_guard<std::mutex> lock(s_mutex);
    --s_iPending;
  }
}

void askForPmts(const Ostrel::TPATTable* pat) {
  // A request is answered by one section: a PAT in several sections takes one
  // request per section (ostrel-scan asks again until it holds them all).
  std::printf("PAT section %u of %u: transport stream 0x%04X, %u programmes\n",
              pat->getSectionNumber() + 1u, pat->getLastSectionNumber() + 1u,
              pat->getTransportStreamId(), pat->getProgramCount());
  for (unsigned int i = 0; i < pat->getProgramCount(); ++i) {
    const Ostrel::TPATTable::Program& program = pat->getProgram(i);
    if (program.programNumber != 0) {  // programme 0 names the network PID
      request(100 + program.programNumber, static_cast<short>(program.pid), 2,
              static_cast<short>(program.programNumber));
    }
  }
}

// The notification callback: on the delivery thread for answers, on the core's
// monitor thread for time-outs. The table is only lent for the call.
int onNotification(unsigned int requestId, unsigned char status, void*,
                   Ostrel::TISDBTTable* table) {
  if (status == 0 && requestId == kPatRequest) {
    askForPmts(static_cast<Ostrel::TPATTable*>(table));  // requests from inside the callback
  } else if (status == 0) {
    const Ostrel::TPMTTable* pmt = static_cast<Ostrel::TPMTTable*>(table);
    std::printf("PMT of programme 0x%04X: PCR PID 0x%04X, %u streams\n", pmt->getProgramNumber(),
                pmt->getPcrPid(), pmt->getStreamCount());
  } else if (status == 1) {
    std::printf("request %u timed out\n", requestId);
  }
  std::lock_guard<std::mutex> lock(s_mutex);
  s_bPatCame = s_bPatCame || (status == 0 && requestId == kPatRequest);
  s_bUncarriedTimedOut = s_bUncarriedTimedOut || (status == 1 && requestId == kUncarriedRequest);
  if (status != 2 && --s_iPending == 0) {
    s_condDone.notify_all();
  }
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FILE.ts [BIT_RATE]\n", argv[0]);
    return 2;
  }
  FileSource source(argv[1], argc > 2 ? static_cast<unsigned int>(std::atoi(argv[2])) : 0);
  if (!source.isOpen()) {
    std::fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[1]);
    return 1;
  }
  Ostrel::ServerEngine server(&source, Ostrel::ServerEngine::Options());
  Ostrel::OstrelGingaCommonCore* core = Ostrel::OstrelGingaCommonCore::getInstance();
  server.setDataDestination(core);  // without it no section ever reaches the core
  core->setServer(&server);
  core->setRequestNotificationCallback(onNotification);

  request(kPatRequest, 0x0000, 0x00, 0);
  request(kUncarriedRequest, kUncarriedPid, 0x02, 1);
  std::unique_lock<std::mutex> lock(s_mutex);
  const bool ended =
      s_condDone.wait_for(lock, std::chrono::seconds(30), [] { return s_iPending == 0; });
  const bool ok = ended && s_bPatCame && s_bUncarriedTimedOut;
  lock.unlock();
  server.shutdown();  // before the source goes: the delivery thread reads it
  std::printf("%s\n", ok ? "ok" : "FAILED: a request did not end as it should");
  return ok ? 0 : 1;
}
