#include "TTOTBuilder.h"

#include "TMjdTime.h"
#include "TSectionFrame.h"
#include "TSectionWriter.h"
#include "TTOTTable.h"

namespace Ostrel {

TTOTBuilder::TTOTBuilder() : m_llUtcSeconds(0) {}

TTOTBuilder& TTOTBuilder::setUtcSeconds(long long seconds) {
  m_llUtcSeconds = seconds;
  return *this;
}

TTOTBuilder& TTOTBuilder::addDescriptor(const std::vector<unsigned char>& descriptor) {
  m_vecDescriptors.insert(m_vecDescriptors.end(), descriptor.begin(), descriptor.end());
  return *this;
}

bool TTOTBuilder::timeBytes(std::vector<unsigned char>* out) const {
  unsigned char time[5];
  if (!TMjdTime::encodeDateTime(m_llUtcSeconds, time))
    return false;
  out->assign(time, time + 5);
  return true;
}

std::vector<unsigned char> TTOTBuilder::build() const {
  std::vector<unsigned char> time;
  if (!timeBytes(&time))
    return std::vector<unsigned char>();
  TSectionWriter body;
  body.bytes(time);
  body.loop12(m_vecDescriptors);
  if (!body.ok())
    return std::vector<unsigned char>();
  return TSectionWriter::shortSection(TTOTTable::kTableIdTot, false, true, body.data(), true,
                                      TSectionFrame::kMaxPsiSectionSize);
}

std::vector<unsigned char> TTOTBuilder::buildTdt() const {
  std::vector<unsigned char> time;
  if (!timeBytes(&time))
    return std::vector<unsigned char>();
  return TSectionWriter::shortSection(TTOTTable::kTableIdTdt, false, true, time, false,
                                      TSectionFrame::kMaxPsiSectionSize);
}

}  // namespace Ostrel
