#include "TPMTTable.h"

#include <memory>
#include <new>

#include "TStreamIdentifierDescriptor.h"

namespace Ostrel {

const unsigned char TPMTTable::kTableId;

bool TPMTTable::Stream::getComponentTag(unsigned char* tag) const {
  const TStreamIdentifierDescriptor* d =
      m_lstDescriptors.findDecoded<TStreamIdentifierDescriptor>();
  if (d == 0)
    return false;
  if (tag)
    *tag = d->getComponentTag();
  return true;
}

TPMTTable::TPMTTable()
    : TLongSectionTable(kTypePmt), m_usPcrPid(0), m_pStreams(0), m_uiStreamCount(0) {}

TPMTTable::~TPMTTable() {
  // The memory is the arena's, which goes after this.
  for (unsigned int i = 0; i < m_uiStreamCount; ++i)
    m_pStreams[i].~Stream();
}

TPMTTable* TPMTTable::parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                            TPMTTable*) {
  if (data == 0 || size == 0 || data[0] != kTableId)
    return 0;
  std::unique_ptr<TPMTTable> table(new TPMTTable());
  if (!table->parseBody(data, size))
    return 0;
  return table.release();
}

// Two passes. The first, over the caller's bytes, checks every length and
// counts the streams and descriptors and the space they take, so that the
// arena's first block is sized for the whole table and every array is
// allocated once. The second builds the table from its copy of the section,
// which has passed every check.
bool TPMTTable::parseBody(const unsigned char* data, unsigned int size) {
  TSectionReader body;
  if (!checkSection(data, size, &body))
    return false;
  unsigned int streams = 0;
  unsigned int descriptors = 0;
  size_t bytes = 0;
  body.u16();  // PCR_PID
  if (!TDescriptorList::measure(body.sub12(), &descriptors, &bytes))
    return false;
  while (!body.atEnd()) {
    body.skip(3);  // stream_type, elementary_PID
    if (!TDescriptorList::measure(body.sub12(), &descriptors, &bytes))
      return false;
    ++streams;
  }
  if (descriptors > 0)
    bytes += TArena::footprint(descriptors * sizeof(TDescriptor*));
  if (streams > 0)
    bytes += TArena::footprint(streams * sizeof(Stream));

  TSectionReader copy = keepSection(data, size, bytes);
  TDescriptor** slots = 0;
  if (descriptors > 0)
    slots = static_cast<TDescriptor**>(arena()->allocate(descriptors * sizeof(TDescriptor*)));
  m_usPcrPid = copy.u16() & 0x1FFF;
  slots += m_lstDescriptors.build(copy.sub12(), slots, arena());
  if (streams > 0)
    m_pStreams = static_cast<Stream*>(arena()->allocate(streams * sizeof(Stream)));
  while (m_uiStreamCount < streams) {
    Stream* s = new (m_pStreams + m_uiStreamCount) Stream();
    ++m_uiStreamCount;
    s->m_ucStreamType = copy.u8();
    s->m_usPid = copy.u16() & 0x1FFF;
    slots += s->m_lstDescriptors.build(copy.sub12(), slots, arena());
  }
  return true;
}

const TPMTTable::Stream* TPMTTable::findStream(unsigned short pid) const {
  for (unsigned int i = 0; i < m_uiStreamCount; ++i) {
    if (m_pStreams[i].m_usPid == pid)
      return &m_pStreams[i];
  }
  return 0;
}

}  // namespace Ostrel
