#include "TNITTable.h"

#include <memory>
#include <utility>

#include "TNetworkNameDescriptor.h"

namespace Ostrel {

const unsigned char TNITTable::kTableIdActual;
const unsigned char TNITTable::kTableIdOther;

namespace {
// transport_stream_id, original_network_id and transport_descriptors_length.
const unsigned int kTransportStreamHeaderSize = 6;
}  // namespace

TNITTable::TNITTable() : TLongSectionTable(kTypeNit) {}

TNITTable::~TNITTable() {}

TNITTable* TNITTable::parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                            TNITTable*) {
  if (data == 0 || size == 0 || (data[0] != kTableIdActual && data[0] != kTableIdOther))
    return 0;
  std::unique_ptr<TNITTable> table(new TNITTable());
  if (!table->parseBody(data, size))
    return 0;
  return table.release();
}

bool TNITTable::parseBody(const unsigned char* data, unsigned int size) {
  TSectionReader body;
  if (!openSection(data, size, &body))
    return false;
  if (!m_lstDescriptors.parse(body.sub12(), arena()))
    return false;
  TSectionReader loop = body.sub12();
  // The transport stream loop must end exactly where the CRC begins.
  if (!body.ok() || !body.atEnd())
    return false;
  m_vecTransportStreams.reserve(loop.remaining() / kTransportStreamHeaderSize);
  while (loop.ok() && !loop.atEnd()) {
    TransportStream ts;
    ts.m_usTransportStreamId = loop.u16();
    ts.m_usOriginalNetworkId = loop.u16();
    if (!ts.m_lstDescriptors.parse(loop.sub12(), arena()))
      return false;
    m_vecTransportStreams.push_back(std::move(ts));
  }
  return loop.ok();
}

std::string TNITTable::getNetworkName() const {
  const TNetworkNameDescriptor* d = m_lstDescriptors.findDecoded<TNetworkNameDescriptor>();
  return d ? d->getName() : std::string();
}

}  // namespace Ostrel
