#include "TPMTBuilder.h"

#include "TPMTTable.h"

namespace Ostrel {

TPMTBuilder::TPMTBuilder() : m_usProgramNumber(0), m_usPcrPid(0x1FFF) {}

TPMTBuilder& TPMTBuilder::setProgramNumber(unsigned short programNumber) {
  m_usProgramNumber = programNumber;
  return *this;
}

TPMTBuilder& TPMTBuilder::setPcrPid(unsigned short pid) {
  m_usPcrPid = pid & 0x1FFF;
  return *this;
}

TPMTBuilder& TPMTBuilder::addDescriptor(const std::vector<unsigned char>& descriptor) {
  m_vecDescriptors.insert(m_vecDescriptors.end(), descriptor.begin(), descriptor.end());
  return *this;
}

TPMTBuilder& TPMTBuilder::addStream(unsigned char streamType, unsigned short pid,
                                    const std::vector<unsigned char>& descriptors) {
  m_wrStreams.u8(streamType);
  m_wrStreams.u16(0xE000u | (pid & 0x1FFFu));
  m_wrStreams.loop12(descriptors);
  return *this;
}

std::vector<unsigned char> TPMTBuilder::build() const {
  TSectionWriter body;
  body.u16(0xE000u | m_usPcrPid);
  body.loop12(m_vecDescriptors);
  if (!m_wrStreams.ok())
    body.fail();
  body.bytes(m_wrStreams.data());
  return finish(TPMTTable::kTableId, false, m_usProgramNumber, body);
}

}  // namespace Ostrel
