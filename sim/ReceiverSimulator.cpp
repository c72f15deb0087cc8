// The published face of the simulated receiver: each call goes to its
// implementation, which holds the tuners, filters and deliveries.
#include "ReceiverSimulator.h"

#include "ReceiverSimulatorImpl.h"
#include "SimulatorTuners.h"
#include "TransportStreamSource.h"
#include "TunerInput.h"

namespace Ostrel {

namespace {

StreamPacer::Mode pacerMode(ReceiverSimulator::Pacing pacing) {
  switch (pacing) {
    case ReceiverSimulator::kByPcr:
      return StreamPacer::kByPcr;
    case ReceiverSimulator::kByBitRate:
      return StreamPacer::kByBitRate;
    case ReceiverSimulator::kAsFastAsPossible:
      break;
  }
  return StreamPacer::kAsFastAsPossible;
}

ServerEngine::Options engineOptions(const ReceiverSimulator::Options& options) {
  ServerEngine::Options engine;
  engine.filterStartMs = options.filterStartMs;
  engine.syncWaitMs = 0;  // synchronous requests: what the streams carried
  return engine;
}

}  // namespace

ReceiverSimulator::ReceiverSimulator() : ReceiverSimulator(Options()) {}

// The engine never calls its source before the first data request, so the
// source can be made in the engine's constructor call and owned here.
ReceiverSimulator::ReceiverSimulator(const Options& options)
    : ServerEngine(new Impl(options), engineOptions(options)),
      m_pImpl(static_cast<Impl*>(getSource())) {}

// The engine stops (closing what is still open) while its source is whole.
ReceiverSimulator::~ReceiverSimulator() {
  shutdown();
  m_pImpl.reset();
}

int ReceiverSimulator::addFileTuner(const std::string& path, bool loop, std::string* error) {
  std::unique_ptr<TransportStreamSource> source = TransportStreamSource::openFile(path, error);
  if (!source) {
    return -1;
  }
  source->setLoop(loop);
  return m_pImpl->addTuner(std::move(source), kTerrestrialTuner);
}

int ReceiverSimulator::addMemoryTuner(std::vector<unsigned char> bytes, const std::string& name,
                                      bool loop) {
  std::unique_ptr<TransportStreamSource> source =
      TransportStreamSource::fromMemory(std::move(bytes), name);
  source->setLoop(loop);
  return m_pImpl->addTuner(std::move(source), kTerrestrialTuner);
}

int ReceiverSimulator::addFedTuner() {
  return m_pImpl->addTuner(nullptr, kTerrestrialTuner);
}

void ReceiverSimulator::setPacing(Pacing pacing, uint64_t bitRate) {
  m_pImpl->setPacing(pacerMode(pacing), bitRate);
}

void ReceiverSimulator::start() {
  settle();
  m_pImpl->start();
}

void ReceiverSimulator::stop() {
  m_pImpl->stop();
}

bool ReceiverSimulator::startTuner(int tunerId) {
  settle();
  return m_pImpl->startTuner(tunerId);
}

bool ReceiverSimulator::feed(int tunerId, const unsigned char* data, size_t size) {
  settle();
  return m_pImpl->feed(tunerId, data, size);
}

bool ReceiverSimulator::waitForEnd(int tunerId, std::chrono::milliseconds timeout) const {
  TunerInput* tuner = m_pImpl->getTuner(tunerId);
  return tuner && tuner->waitForEnd(timeout);
}

bool ReceiverSimulator::waitDelivered(std::chrono::milliseconds timeout) {
  const bool drained = m_pImpl->waitDrained(timeout);
  waitBusyCommands();
  return drained;
}

size_t ReceiverSimulator::getTunerCount() const {
  return static_cast<size_t>(m_pImpl->getTunerCount());
}

void ReceiverSimulator::setFaultPlan(const FaultPlan& plan) {
  m_pImpl->setFaultPlan(plan);
}

ReceiverSimulator::FaultCounts ReceiverSimulator::getFaultCounts() const {
  FaultCounts counts;
  m_pImpl->getFaultCounts(&counts.dropped, &counts.corrupted);
  return counts;
}

unsigned int ReceiverSimulator::getFilterStartMs() const {
  return getOptions().filterStartMs;
}

std::string ReceiverSimulator::getKeyHolder(unsigned int keyCode) const {
  return m_pImpl->getKeyHolder(keyCode);
}

std::vector<std::pair<std::string, unsigned char>> ReceiverSimulator::getAppStatusChanges() const {
  return m_pImpl->getAppStatusChanges();
}

int SimulatorTuners::add(ReceiverSimulator* sim, std::unique_ptr<TransportStreamSource> source,
                         unsigned char type) {
  return sim->m_pImpl->addTuner(std::move(source), type);
}

TunerInput* SimulatorTuners::get(const ReceiverSimulator& sim, int tunerId) {
  return sim.m_pImpl->getTuner(tunerId);
}

}  // namespace Ostrel
