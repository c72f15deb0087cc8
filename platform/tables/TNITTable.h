#ifndef OSTREL_TNIT_TABLE_H
#define OSTREL_TNIT_TABLE_H

#include <string>
#include <vector>

#include "TDescriptorList.h"
#include "TLongSectionTable.h"

namespace Ostrel {

// Network information table (PID 0x0010): the network's descriptors (name,
// system management, ...) and its transport streams, each with ids and
// descriptors (service list, TS information, terrestrial delivery system,
// partial reception). Both the actual network's table (id 0x40) and another
// network's (0x41) are accepted; isActual() tells them apart. One section;
// type code kTypeNit. Immutable once parsed; any thread may read it.
class TNITTable : public TLongSectionTable {
 public:
  static const unsigned char kTableIdActual = 0x40;
  static const unsigned char kTableIdOther = 0x41;

  // One transport stream of the network.
  class TransportStream {
   public:
    TransportStream() : m_usTransportStreamId(0), m_usOriginalNetworkId(0) {}
    unsigned short getTransportStreamId() const { return m_usTransportStreamId; }
    unsigned short getOriginalNetworkId() const { return m_usOriginalNetworkId; }
    const TDescriptorList& getDescriptors() const { return m_lstDescriptors; }

   private:
    friend class TNITTable;
    unsigned short m_usTransportStreamId;
    unsigned short m_usOriginalNetworkId;
    TDescriptorList m_lstDescriptors;
  };

  TNITTable();
  ~TNITTable();

  // Parses one complete section data[0..size) and gives a new table that the
  // caller owns, or null when it is not a well-formed NIT section. The ints
  // and pointers are not used. Any thread.
  static TNITTable* parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                          TNITTable*);

  unsigned short getNetworkId() const { return getTableIdExtension(); }
  bool isActual() const { return getTableId() == kTableIdActual; }
  const TDescriptorList& getDescriptors() const { return m_lstDescriptors; }
  // The name of the network descriptor as UTF-8, or empty when there is none.
  std::string getNetworkName() const;
  unsigned int getTransportStreamCount() const {
    return static_cast<unsigned int>(m_vecTransportStreams.size());
  }
  const TransportStream& getTransportStream(unsigned int index) const {
    return m_vecTransportStreams[index];
  }

 private:
  bool parseBody(const unsigned char* data, unsigned int size);

  TDescriptorList m_lstDescriptors;
  std::vector<TransportStream> m_vecTransportStreams;
};

}  // namespace Ostrel

#endif  // OSTREL_TNIT_TABLE_H
