#include "TPATTable.h"

#include <memory>

namespace Ostrel {

const unsigned char TPATTable::kTableId;

TPATTable::TPATTable() : TLongSectionTable(kTypePat) {}

TPATTable::~TPATTable() {}

TPATTable* TPATTable::parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                            TPATTable*) {
  if (data == 0 || size == 0 || data[0] != kTableId)
    return 0;
  std::unique_ptr<TPATTable> table(new TPATTable());
  if (!table->parseBody(data, size))
    return 0;
  return table.release();
}

bool TPATTable::parseBody(const unsigned char* data, unsigned int size) {
  TSectionReader body;
  if (!openSection(data, size, &body))
    return false;
  if (body.remaining() % 4 != 0)
    return false;
  m_vecPrograms.reserve(body.remaining() / 4);
  while (!body.atEnd()) {
    Program p;
    p.programNumber = body.u16();
    p.pid = body.u16() & 0x1FFF;
    m_vecPrograms.push_back(p);
  }
  return body.ok();
}

bool TPATTable::getPmtPid(unsigned short programNumber, unsigned short* pid) const {
  if (programNumber == 0)
    return false;
  for (unsigned int i = 0; i < m_vecPrograms.size(); ++i) {
    if (m_vecPrograms[i].programNumber == programNumber) {
      if (pid)
        *pid = m_vecPrograms[i].pid;
      return true;
    }
  }
  return false;
}

bool TPATTable::getNetworkPid(unsigned short* pid) const {
  for (unsigned int i = 0; i < m_vecPrograms.size(); ++i) {
    if (m_vecPrograms[i].programNumber == 0) {
      if (pid)
        *pid = m_vecPrograms[i].pid;
      return true;
    }
  }
  return false;
}

}  // namespace Ostrel
