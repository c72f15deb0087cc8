#ifndef OSTREL_TSDT_TABLE_H
#define OSTREL_TSDT_TABLE_H

#include <string>
#include <vector>

#include "TDescriptorList.h"
#include "TLongSectionTable.h"

namespace Ostrel {

// Service description table (PID 0x0011): the services of a transport
// stream, each with its flags, running status and descriptors (the service
// descriptor gives type, provider and name). Both the actual stream's table
// (id 0x42) and another stream's (0x46) are accepted; isActual() tells them
// apart. One section; type code kTypeSdt. Immutable once parsed; any thread
// may read it.
class TSDTTable : public TLongSectionTable {
 public:
  static const unsigned char kTableIdActual = 0x42;
  static const unsigned char kTableIdOther = 0x46;

  // One service of the transport stream.
  class Service {
   public:
    Service()
        : m_usServiceId(0),
          m_ucEitUserDefinedFlags(0),
          m_bEitSchedule(false),
          m_bEitPresentFollowing(false),
          m_ucRunningStatus(0),
          m_bFreeCaMode(false) {}
    unsigned short getServiceId() const { return m_usServiceId; }
    unsigned char getEitUserDefinedFlags() const { return m_ucEitUserDefinedFlags; }  // 3 bits
    bool isEitSchedule() const { return m_bEitSchedule; }
    bool isEitPresentFollowing() const { return m_bEitPresentFollowing; }
    unsigned char getRunningStatus() const { return m_ucRunningStatus; }  // 3 bits
    // free_CA_mode: true when a component is scrambled.
    bool isFreeCaMode() const { return m_bFreeCaMode; }
    const TDescriptorList& getDescriptors() const { return m_lstDescriptors; }
    // From the service descriptor; 0 / empty when there is none.
    unsigned char getServiceType() const;
    std::string getServiceName() const;
    std::string getProviderName() const;

   private:
    friend class TSDTTable;
    unsigned short m_usServiceId;
    unsigned char m_ucEitUserDefinedFlags;
    bool m_bEitSchedule;
    bool m_bEitPresentFollowing;
    unsigned char m_ucRunningStatus;
    bool m_bFreeCaMode;
    TDescriptorList m_lstDescriptors;
  };

  TSDTTable();
  ~TSDTTable();

  // Parses one complete section data[0..size) and gives a new table that the
  // caller owns, or null when it is not a well-formed SDT section. The ints
  // and pointers are not used. Any thread.
  static TSDTTable* parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                          TSDTTable*);

  unsigned short getTransportStreamId() const { return getTableIdExtension(); }
  unsigned short getOriginalNetworkId() const { return m_usOriginalNetworkId; }
  bool isActual() const { return getTableId() == kTableIdActual; }
  unsigned int getServiceCount() const { return static_cast<unsigned int>(m_vecServices.size()); }
  const Service& getService(unsigned int index) const { return m_vecServices[index]; }
  // The service with this id, or null.
  const Service* findService(unsigned short serviceId) const;

 private:
  bool parseBody(const unsigned char* data, unsigned int size);

  unsigned short m_usOriginalNetworkId;
  std::vector<Service> m_vecServices;
};

}  // namespace Ostrel

#endif  // OSTREL_TSDT_TABLE_H
