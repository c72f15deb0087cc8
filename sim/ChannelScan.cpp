#include "ChannelScan.h"

#include <atomic>
#include <cstdio>
#include <map>
#include <utility>

#include "OstrelGingaCommonCore.h"
#include "RequestTrace.h"
#include "TLocalTimeOffsetDescriptor.h"
#include "TNITTable.h"
#include "TPATTable.h"
#include "TPMTTable.h"
#include "TPartialReceptionDescriptor.h"
#include "TSDTTable.h"
#include "TTOTTable.h"
#include "TTSInformationDescriptor.h"
#include "TTerrestrialDeliverySystemDescriptor.h"

namespace Ostrel {

namespace {

const short kPatPid = 0x0000;
const short kNitPid = 0x0010;
const short kSdtPid = 0x0011;
const short kTotPid = 0x0014;
const short kPmtTableId = 0x02;
const unsigned int kCountryBra = ('B' << 16) | ('R' << 8) | 'A';

// Request ids are unique in the process, so that scans may overlap.
std::atomic<unsigned int> s_uiNextRequestId(1);

// The request this thread is sending: an answer for it that arrives while
// requestData is still running came from the cache.
thread_local unsigned int t_uiSending = 0;

std::string hex4(unsigned short value) {
  char text[8];
  std::snprintf(text, sizeof(text), "0x%04X", value);
  return text;
}

}  // namespace

// Everything a scan knows; shared with the tickets of its requests.
struct ChannelScan::State {
  OstrelGingaCommonCore* core = nullptr;
  int tunerId = 0;
  signed char mode = 1;
  RequestTrace* trace = nullptr;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();

  std::mutex mutex;  // guards every field below
  std::condition_variable cond;
  bool closed = false;
  unsigned int pending = 0;
  Result result;  // services and partial-reception flags are kept apart below
  std::map<unsigned int, size_t> requestIndex;
  std::map<unsigned short, Service> services;
  std::vector<unsigned short> patOrder;
  std::vector<unsigned short> sdtOrder;
  std::vector<unsigned short> partialReception;

  double elapsedMs() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
  }

  // REQUIRES: mutex held.
  Service& __service(unsigned short id) {
    Service& service = services[id];
    service.id = id;
    return service;
  }

  void send(const std::shared_ptr<State>& self, const std::string& what, short pid, short tableId,
            short tableIdExt);
  void answer(const std::shared_ptr<State>& self, unsigned int requestId, unsigned char status,
              TISDBTTable* table);
  // REQUIRES: mutex held. Reads a table into the result; PMT PIDs to ask for
  // next go to *more.
  void __read(const Request& request, TISDBTTable* table,
              std::vector<std::pair<unsigned short, unsigned short>>* more);
  void finish(unsigned int requestId);
};

struct ChannelScan::Ticket {
  std::shared_ptr<State> state;
};

void ChannelScan::State::send(const std::shared_ptr<State>& self, const std::string& what,
                              short pid, short tableId, short tableIdExt) {
  const unsigned int id = s_uiNextRequestId.fetch_add(1);
  {
    std::lock_guard<std::mutex> lock(mutex);
    Request request;
    request.id = id;
    request.what = what;
    request.pid = pid;
    request.tableId = tableId;
    request.tableIdExt = tableIdExt;
    request.sentMs = elapsedMs();
    requestIndex[id] = result.requests.size();
    result.requests.push_back(request);
    ++pending;
  }
  if (trace) {
    char args[64];
    std::snprintf(args, sizeof(args), "pid 0x%04X table 0x%02X ext 0x%04X",
                  static_cast<unsigned short>(pid), static_cast<unsigned short>(tableId),
                  static_cast<unsigned short>(tableIdExt));
    trace->sent(id, what, args);
  }
  Ticket* ticket = new Ticket();
  ticket->state = self;
  short error = 0;
  const unsigned int outer = t_uiSending;
  t_uiSending = id;
  int sent = core->requestData(id, mode, tunerId, pid, tableId, tableIdExt, ticket,
                               &ChannelScan::releaseTicket, &error);
  t_uiSending = outer;
  if (sent) {
    return;
  }
  bool failed = false;
  {
    std::lock_guard<std::mutex> lock(mutex);
    Request& request = result.requests[requestIndex[id]];
    if (request.outcome == kPending) {
      // Refused: the ticket is still ours.
      request.outcome = kFailed;
      request.errorCode = error;
      request.endedMs = elapsedMs();
      failed = true;
    }
  }
  if (failed) {
    delete ticket;
    if (trace) {
      trace->ended(id, what, "failed");
    }
    finish(id);
  }
}

void ChannelScan::State::answer(const std::shared_ptr<State>& self, unsigned int requestId,
                                unsigned char status, TISDBTTable* table) {
  std::vector<std::pair<unsigned short, unsigned short>> more;
  std::string what;
  Outcome outcome = kPending;
  {
    std::lock_guard<std::mutex> lock(mutex);
    std::map<unsigned int, size_t>::iterator found = requestIndex.find(requestId);
    if (closed || found == requestIndex.end()) {
      return;
    }
    Request& request = result.requests[found->second];
    if (request.outcome != kPending) {
      return;
    }
    request.endedMs = elapsedMs();
    if (status == 0 && table) {
      request.outcome = t_uiSending == requestId ? kFromCache : kDelivered;
      __read(request, table, &more);
    } else {
      request.outcome = kTimedOut;
      if (request.tableId == kPmtTableId) {
        __service(static_cast<unsigned short>(request.tableIdExt)).pmt = kTimedOut;
      }
    }
    what = request.what;
    outcome = request.outcome;
  }
  if (trace) {
    if (outcome == kFromCache) {
      trace->instant("cache hit", what);
    }
    trace->ended(requestId, what, outcomeName(outcome));
  }
  // Follow-up requests go out before this one counts as ended, so that the
  // scan never looks finished in between.
  for (size_t i = 0; i < more.size(); ++i) {
    send(self, "PMT " + hex4(more[i].second), static_cast<short>(more[i].first), kPmtTableId,
         static_cast<short>(more[i].second));
  }
  finish(requestId);
}

void ChannelScan::State::finish(unsigned int) {
  {
    std::lock_guard<std::mutex> lock(mutex);
    --pending;
  }
  cond.notify_all();
}

// REQUIRES: mutex held.
void ChannelScan::State::__read(const Request& request, TISDBTTable* table,
                                std::vector<std::pair<unsigned short, unsigned short>>* more) {
  if (request.pid == kPatPid) {
    const TPATTable* pat = dynamic_cast<const TPATTable*>(table);
    if (!pat || result.hasPat) {
      return;
    }
    result.hasPat = true;
    result.transportStreamId = pat->getTransportStreamId();
    result.patVersion = pat->getVersionNumber();
    for (unsigned int i = 0; i < pat->getProgramCount(); ++i) {
      const TPATTable::Program& program = pat->getProgram(i);
      if (program.programNumber == 0) {
        continue;  // the network PID
      }
      Service& service = __service(program.programNumber);
      service.inPat = true;
      service.pmtPid = program.pid;
      patOrder.push_back(program.programNumber);
      more->push_back(std::make_pair(program.pid, program.programNumber));
    }
  } else if (request.pid == kNitPid) {
    const TNITTable* nit = dynamic_cast<const TNITTable*>(table);
    if (!nit) {
      return;
    }
    result.hasNit = true;
    result.networkId = nit->getNetworkId();
    result.nitVersion = nit->getVersionNumber();
    result.networkName = nit->getNetworkName();
    if (nit->getTransportStreamCount() == 0) {
      return;
    }
    const TDescriptorList& loop = nit->getTransportStream(0).getDescriptors();
    if (const TTSInformationDescriptor* info = loop.findDecoded<TTSInformationDescriptor>()) {
      result.tsName = info->getTsName();
      result.remoteControlKeyId = info->getRemoteControlKeyId();
    }
    if (const TTerrestrialDeliverySystemDescriptor* delivery =
            loop.findDecoded<TTerrestrialDeliverySystemDescriptor>()) {
      for (unsigned int i = 0; i < delivery->getFrequencies().size(); ++i) {
        result.frequenciesHz.push_back(delivery->getFrequencyHz(i));
      }
      result.transmissionMode = delivery->getTransmissionMode() + 1;
      result.guardInterval = delivery->getGuardInterval();
    }
    if (const TPartialReceptionDescriptor* partial =
            loop.findDecoded<TPartialReceptionDescriptor>()) {
      partialReception = partial->getServiceIds();
    }
  } else if (request.pid == kSdtPid) {
    const TSDTTable* sdt = dynamic_cast<const TSDTTable*>(table);
    if (!sdt) {
      return;
    }
    result.hasSdt = true;
    result.originalNetworkId = sdt->getOriginalNetworkId();
    result.sdtVersion = sdt->getVersionNumber();
    for (unsigned int i = 0; i < sdt->getServiceCount(); ++i) {
      const TSDTTable::Service& entry = sdt->getService(i);
      Service& service = __service(entry.getServiceId());
      service.inSdt = true;
      service.type = entry.getServiceType();
      service.name = entry.getServiceName();
      service.provider = entry.getProviderName();
      sdtOrder.push_back(entry.getServiceId());
    }
  } else if (request.pid == kTotPid) {
    const TTOTTable* tot = dynamic_cast<const TTOTTable*>(table);
    if (!tot) {
      return;
    }
    result.hasTot = true;
    result.utcSeconds = tot->getUtcSeconds();
    const TLocalTimeOffsetDescriptor* offsets =
        tot->getDescriptors().findDecoded<TLocalTimeOffsetDescriptor>();
    for (unsigned int i = 0; offsets && i < offsets->getEntryCount(); ++i) {
      if (offsets->getEntry(i).countryCode == kCountryBra) {
        result.hasLocalOffset = true;
        result.localOffsetSeconds = offsets->getEntry(i).localTimeOffset;
        break;
      }
    }
  } else if (request.tableId == kPmtTableId) {
    const TPMTTable* pmt = dynamic_cast<const TPMTTable*>(table);
    if (!pmt) {
      return;
    }
    Service& service = __service(pmt->getProgramNumber());
    service.pmt = kDelivered;
    service.pmtVersion = pmt->getVersionNumber();
    service.pcrPid = pmt->getPcrPid();
    service.streams.clear();
    for (unsigned int i = 0; i < pmt->getStreamCount(); ++i) {
      const TPMTTable::Stream& entry = pmt->getStream(i);
      Stream stream;
      stream.type = entry.getStreamType();
      stream.pid = entry.getPid();
      unsigned char tag = 0;
      if (entry.getComponentTag(&tag)) {
        stream.componentTag = tag;
      }
      service.streams.push_back(stream);
    }
  }
}

ChannelScan::ChannelScan(OstrelGingaCommonCore* core, int tunerId, signed char mode)
    : m_pState(new State()) {
  m_pState->core = core;
  m_pState->tunerId = tunerId;
  m_pState->mode = mode;
}

ChannelScan::~ChannelScan() {
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  m_pState->closed = true;
}

void ChannelScan::setTrace(RequestTrace* trace) {
  m_pState->trace = trace;
}

void ChannelScan::releaseTicket(void* ticket) {
  delete static_cast<Ticket*>(ticket);
}

int ChannelScan::notify(unsigned int requestId, unsigned char status, void* userData,
                        TISDBTTable* table) {
  if (!userData) {
    return 1;  // event data: not asked for by a scan
  }
  Ticket* ticket = static_cast<Ticket*>(userData);
  ticket->state->answer(ticket->state, requestId, status, table);
  return 1;
}

const char* ChannelScan::outcomeName(Outcome outcome) {
  switch (outcome) {
    case kDelivered:
      return "delivered";
    case kFromCache:
      return "from cache";
    case kTimedOut:
      return "timed out";
    case kFailed:
      return "failed";
    case kPending:
    default:
      return "no answer";
  }
}

void ChannelScan::start() {
  State& state = *m_pState;
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    if (!state.result.requests.empty()) {
      return;
    }
  }
  state.core->setRequestNotificationCallback(&ChannelScan::notify);
  state.send(m_pState, "PAT", kPatPid, 0x00, 0);
  state.send(m_pState, "NIT", kNitPid, 0x40, 0);
  state.send(m_pState, "SDT", kSdtPid, 0x42, 0);
  state.send(m_pState, "TOT", kTotPid, 0x73, 0);
}

bool ChannelScan::waitFor(std::chrono::milliseconds limit) {
  State& state = *m_pState;
  std::unique_lock<std::mutex> lock(state.mutex);
  return state.cond.wait_for(lock, limit, [&state] { return state.pending == 0; });
}

bool ChannelScan::run(std::chrono::milliseconds limit) {
  start();
  waitFor(limit);
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  return m_pState->result.hasPat;
}

unsigned int ChannelScan::getPendingCount() const {
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  return m_pState->pending;
}

ChannelScan::Result ChannelScan::getResult() const {
  std::lock_guard<std::mutex> lock(m_pState->mutex);
  const State& state = *m_pState;
  Result result = state.result;
  std::vector<unsigned short> order = state.patOrder;
  for (size_t i = 0; i < state.sdtOrder.size(); ++i) {
    std::map<unsigned short, Service>::const_iterator it = state.services.find(state.sdtOrder[i]);
    if (it != state.services.end() && !it->second.inPat) {
      order.push_back(state.sdtOrder[i]);
    }
  }
  for (size_t i = 0; i < order.size(); ++i) {
    Service service = state.services.find(order[i])->second;
    for (size_t k = 0; k < state.partialReception.size(); ++k) {
      if (state.partialReception[k] == service.id) {
        service.partialReception = true;
      }
    }
    result.services.push_back(service);
  }
  return result;
}

}  // namespace Ostrel
