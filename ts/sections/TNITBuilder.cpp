#include "TNITBuilder.h"

#include "TNITTable.h"

namespace Ostrel {

TNITBuilder::TNITBuilder() : m_usNetworkId(0), m_bActual(true) {}

TNITBuilder& TNITBuilder::setNetworkId(unsigned short networkId) {
  m_usNetworkId = networkId;
  return *this;
}

TNITBuilder& TNITBuilder::setActual(bool actual) {
  m_bActual = actual;
  return *this;
}

TNITBuilder& TNITBuilder::addDescriptor(const std::vector<unsigned char>& descriptor) {
  m_vecDescriptors.insert(m_vecDescriptors.end(), descriptor.begin(), descriptor.end());
  return *this;
}

TNITBuilder& TNITBuilder::addTransportStream(unsigned short transportStreamId,
                                             unsigned short originalNetworkId,
                                             const std::vector<unsigned char>& descriptors) {
  m_wrTransportStreams.u16(transportStreamId);
  m_wrTransportStreams.u16(originalNetworkId);
  m_wrTransportStreams.loop12(descriptors);
  return *this;
}

std::vector<unsigned char> TNITBuilder::build() const {
  TSectionWriter body;
  body.loop12(m_vecDescriptors);
  if (!m_wrTransportStreams.ok())
    body.fail();
  body.loop12(m_wrTransportStreams.data());
  return finish(m_bActual ? TNITTable::kTableIdActual : TNITTable::kTableIdOther, true,
                m_usNetworkId, body);
}

}  // namespace Ostrel
