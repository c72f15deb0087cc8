#include "TGetTunerListResponse.h"

#include "TGetTunerListCommand.h"

namespace Ostrel {

TGetTunerListResponse::TGetTunerListResponse() : TCommand(TGetTunerListCommand::kCode) {}

TGetTunerListResponse::~TGetTunerListResponse() {}

void TGetTunerListResponse::addTuner(int id, unsigned char type) {
  m_vecTuners.push_back(std::make_pair(id, type));
}

unsigned int TGetTunerListResponse::getTunerCounter() const {
  return static_cast<unsigned int>(m_vecTuners.size());
}

int TGetTunerListResponse::getTunerId(unsigned char index, int* id) const {
  if (!id || index >= m_vecTuners.size()) {
    return 0;
  }
  *id = m_vecTuners[index].first;
  return 1;
}

int TGetTunerListResponse::getTunerType(unsigned char index, unsigned char* type) const {
  if (!type || index >= m_vecTuners.size()) {
    return 0;
  }
  *type = m_vecTuners[index].second;
  return 1;
}

}  // namespace Ostrel
