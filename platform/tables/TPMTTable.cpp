#include "TPMTTable.h"

#include <memory>
#include <utility>

#include "TStreamIdentifierDescriptor.h"

namespace Ostrel {

const unsigned char TPMTTable::kTableId;

namespace {
// stream_type, elementary_PID and ES_info_length.
const unsigned int kStreamHeaderSize = 5;
}  // namespace

bool TPMTTable::Stream::getComponentTag(unsigned char* tag) const {
  const TStreamIdentifierDescriptor* d =
      m_lstDescriptors.findDecoded<TStreamIdentifierDescriptor>();
  if (d == 0)
    return false;
  if (tag)
    *tag = d->getComponentTag();
  return true;
}

TPMTTable::TPMTTable() : TLongSectionTable(kTypePmt), m_usPcrPid(0) {}

TPMTTable::~TPMTTable() {}

TPMTTable* TPMTTable::parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                            TPMTTable*) {
  if (data == 0 || size == 0 || data[0] != kTableId)
    return 0;
  std::unique_ptr<TPMTTable> table(new TPMTTable());
  if (!table->parseBody(data, size))
    return 0;
  return table.release();
}

bool TPMTTable::parseBody(const unsigned char* data, unsigned int size) {
  TSectionReader body;
  if (!openSection(data, size, &body))
    return false;
  m_usPcrPid = body.u16() & 0x1FFF;
  if (!m_lstDescriptors.parse(body.sub12(), arena()))
    return false;
  // Every stream needs at least its 5-byte header: a bound for the reservation.
  m_vecStreams.reserve(body.remaining() / kStreamHeaderSize);
  while (body.ok() && !body.atEnd()) {
    Stream s;
    s.m_ucStreamType = body.u8();
    s.m_usPid = body.u16() & 0x1FFF;
    if (!s.m_lstDescriptors.parse(body.sub12(), arena()))
      return false;
    m_vecStreams.push_back(std::move(s));
  }
  return body.ok();
}

const TPMTTable::Stream* TPMTTable::findStream(unsigned short pid) const {
  for (unsigned int i = 0; i < m_vecStreams.size(); ++i) {
    if (m_vecStreams[i].m_usPid == pid)
      return &m_vecStreams[i];
  }
  return 0;
}

}  // namespace Ostrel
