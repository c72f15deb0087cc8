#include "TPATBuilder.h"

#include "TPATTable.h"

namespace Ostrel {

TPATBuilder::TPATBuilder() : m_usTransportStreamId(0) {}

TPATBuilder& TPATBuilder::setTransportStreamId(unsigned short id) {
  m_usTransportStreamId = id;
  return *this;
}

TPATBuilder& TPATBuilder::addProgram(unsigned short programNumber, unsigned short pid) {
  m_wrPrograms.u16(programNumber);
  m_wrPrograms.u16(0xE000u | (pid & 0x1FFFu));
  return *this;
}

std::vector<unsigned char> TPATBuilder::build() const {
  return finish(TPATTable::kTableId, false, m_usTransportStreamId, m_wrPrograms);
}

}  // namespace Ostrel
