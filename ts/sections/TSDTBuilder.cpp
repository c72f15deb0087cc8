#include "TSDTBuilder.h"

#include "TSDTTable.h"

namespace Ostrel {

const unsigned char TSDTBuilder::kRunning;

TSDTBuilder::TSDTBuilder() : m_usTransportStreamId(0), m_usOriginalNetworkId(0), m_bActual(true) {}

TSDTBuilder& TSDTBuilder::setTransportStreamId(unsigned short id) {
  m_usTransportStreamId = id;
  return *this;
}

TSDTBuilder& TSDTBuilder::setOriginalNetworkId(unsigned short id) {
  m_usOriginalNetworkId = id;
  return *this;
}

TSDTBuilder& TSDTBuilder::setActual(bool actual) {
  m_bActual = actual;
  return *this;
}

TSDTBuilder& TSDTBuilder::addService(unsigned short serviceId,
                                     const std::vector<unsigned char>& descriptors,
                                     unsigned char runningStatus, bool eitPresentFollowing,
                                     bool eitSchedule, bool freeCaMode) {
  m_wrServices.u16(serviceId);
  // reserved_future_use all ones, EIT_user_defined_flags zero.
  m_wrServices.u8(0xE0 | (eitSchedule ? 0x02 : 0) | (eitPresentFollowing ? 0x01 : 0));
  m_wrServices.loop12(descriptors, ((runningStatus & 0x07) << 1) | (freeCaMode ? 1 : 0));
  return *this;
}

std::vector<unsigned char> TSDTBuilder::build() const {
  TSectionWriter body;
  body.u16(m_usOriginalNetworkId);
  body.u8(0xFF);  // reserved_future_use
  if (!m_wrServices.ok())
    body.fail();
  body.bytes(m_wrServices.data());
  return finish(m_bActual ? TSDTTable::kTableIdActual : TSDTTable::kTableIdOther, true,
                m_usTransportStreamId, body);
}

}  // namespace Ostrel
