#include "TCommand.h"

#include <atomic>

#include "GingaEndPoint.h"
#include "TDataRequestCommand.h"
#include "TGetTunerListCommand.h"
#include "TNotifyStatusChange.h"
#include "TReleaseKeyCommand.h"
#include "TReserveKeyCommand.h"
#include "TSyncDataRequestCommand.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"

namespace Ostrel {

namespace {
std::atomic<TCommand::FactoryHook> s_pfFactoryHook(NULL);
std::atomic<long> s_lLiveCount(0);
}  // namespace

TCommand::TCommand(unsigned short code) : m_usCode(code), m_pEndPoint(NULL) {
  s_lLiveCount.fetch_add(1, std::memory_order_relaxed);
}

TCommand::~TCommand() {
  s_lLiveCount.fetch_sub(1, std::memory_order_relaxed);
}

int TCommand::send(TCommand** response) {
  if (!m_pEndPoint) {
    return 0;
  }
  return m_pEndPoint->execute(this, response);
}

TCommand* TCommand::commandFactory(unsigned short code) {
  FactoryHook hook = s_pfFactoryHook.load(std::memory_order_acquire);
  return hook ? hook(code) : createDefault(code);
}

TCommand* TCommand::createDefault(unsigned short code) {
  switch (code) {
    case TReserveKeyCommand::kCode:
      return new TReserveKeyCommand();
    case TReleaseKeyCommand::kCode:
      return new TReleaseKeyCommand();
    case TNotifyStatusChange::kCode:
      return new TNotifyStatusChange();
    case TVideoGetSize::kCode:
      return new TVideoGetSize();
    case TVideoGetDefaultSize::kCode:
      return new TVideoGetDefaultSize();
    case TVideoGetSourceVideoSize::kCode:
      return new TVideoGetSourceVideoSize();
    case TVideoSetSize::kCode:
      return new TVideoSetSize();
    case TVideoCheckSize::kCode:
      return new TVideoCheckSize();
    case TGetTunerListCommand::kCode:
      return new TGetTunerListCommand();
    case TDataRequestCommand::kCode:
      return new TDataRequestCommand();
    case TSyncDataRequestCommand::kCode:
      return new TSyncDataRequestCommand();
    default:
      return NULL;
  }
}

void TCommand::setFactoryHook(FactoryHook hook) {
  s_pfFactoryHook.store(hook, std::memory_order_release);
}

long TCommand::getLiveCount() {
  return s_lLiveCount.load(std::memory_order_relaxed);
}

}  // namespace Ostrel
