#include "TSDTTable.h"

#include <memory>
#include <utility>

#include "TServiceDescriptor.h"

namespace Ostrel {

const unsigned char TSDTTable::kTableIdActual;
const unsigned char TSDTTable::kTableIdOther;

namespace {
// service_id, flags and descriptors_loop_length.
const unsigned int kServiceHeaderSize = 5;
}  // namespace

unsigned char TSDTTable::Service::getServiceType() const {
  const TServiceDescriptor* d = m_lstDescriptors.findDecoded<TServiceDescriptor>();
  return d ? d->getServiceType() : 0;
}

std::string TSDTTable::Service::getServiceName() const {
  const TServiceDescriptor* d = m_lstDescriptors.findDecoded<TServiceDescriptor>();
  return d ? d->getServiceName() : std::string();
}

std::string TSDTTable::Service::getProviderName() const {
  const TServiceDescriptor* d = m_lstDescriptors.findDecoded<TServiceDescriptor>();
  return d ? d->getProviderName() : std::string();
}

TSDTTable::TSDTTable() : TLongSectionTable(kTypeSdt), m_usOriginalNetworkId(0) {}

TSDTTable::~TSDTTable() {}

TSDTTable* TSDTTable::parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                            TSDTTable*) {
  if (data == 0 || size == 0 || (data[0] != kTableIdActual && data[0] != kTableIdOther))
    return 0;
  std::unique_ptr<TSDTTable> table(new TSDTTable());
  if (!table->parseBody(data, size))
    return 0;
  return table.release();
}

bool TSDTTable::parseBody(const unsigned char* data, unsigned int size) {
  TSectionReader body;
  if (!openSection(data, size, &body))
    return false;
  m_usOriginalNetworkId = body.u16();
  body.u8();  // reserved_future_use
  m_vecServices.reserve(body.remaining() / kServiceHeaderSize);
  while (body.ok() && !body.atEnd()) {
    Service s;
    s.m_usServiceId = body.u16();
    unsigned char flags = body.u8();
    s.m_ucEitUserDefinedFlags = (flags >> 2) & 0x07;
    s.m_bEitSchedule = (flags & 0x02) != 0;
    s.m_bEitPresentFollowing = (flags & 0x01) != 0;
    unsigned short statusAndLength = body.u16();
    s.m_ucRunningStatus = statusAndLength >> 13;
    s.m_bFreeCaMode = (statusAndLength & 0x1000) != 0;
    if (!s.m_lstDescriptors.parse(body.sub(statusAndLength & 0x0FFF), arena()))
      return false;
    m_vecServices.push_back(std::move(s));
  }
  return body.ok();
}

const TSDTTable::Service* TSDTTable::findService(unsigned short serviceId) const {
  for (unsigned int i = 0; i < m_vecServices.size(); ++i) {
    if (m_vecServices[i].m_usServiceId == serviceId)
      return &m_vecServices[i];
  }
  return 0;
}

}  // namespace Ostrel
