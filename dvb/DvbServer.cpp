#include "DvbServer.h"

namespace Ostrel {

namespace {

ServerEngine::Options engineOptions(const DvbServer::Options& options) {
  ServerEngine::Options engine;
  engine.filterStartMs = options.filterStartMs;
  engine.syncWaitMs = options.syncTimeoutMs;
  return engine;
}

DvbSource::Options sourceOptions(const DvbServer::Options& options) {
  DvbSource::Options source;
  source.bufferSize = options.bufferSize;
  source.filterLimit = options.filterLimit;
  return source;
}

}  // namespace

// The engine is given the source before the source is built: it calls the
// source only from execute and its delivery thread, which start later.
DvbServer::DvbServer(const std::vector<std::string>& adapters, const Options& options)
    : ServerEngine(&m_source, engineOptions(options)), m_source(adapters, sourceOptions(options)) {}

DvbServer::~DvbServer() {
  shutdown();  // before m_source goes
}

}  // namespace Ostrel
