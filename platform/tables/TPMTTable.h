#ifndef OSTREL_TPMT_TABLE_H
#define OSTREL_TPMT_TABLE_H

#include "TDescriptorList.h"
#include "TLongSectionTable.h"

namespace Ostrel {

// Program map table (table id 0x02): a programme's PCR PID, its descriptors
// and its elementary streams, each with type, PID and descriptors. One
// section; type code kTypePmt. Immutable once parsed; any thread may read it.
class TPMTTable : public TLongSectionTable {
 public:
  static const unsigned char kTableId = 0x02;

  // One elementary stream of the programme.
  class Stream {
   public:
    Stream() : m_ucStreamType(0), m_usPid(0) {}
    unsigned char getStreamType() const { return m_ucStreamType; }
    unsigned short getPid() const { return m_usPid; }  // 13 bits
    const TDescriptorList& getDescriptors() const { return m_lstDescriptors; }
    // The component tag of its stream identifier descriptor; false when none.
    bool getComponentTag(unsigned char* tag) const;

   private:
    friend class TPMTTable;
    unsigned char m_ucStreamType;
    unsigned short m_usPid;
    TDescriptorList m_lstDescriptors;
  };

  TPMTTable();
  ~TPMTTable();

  // Parses one complete section data[0..size) and gives a new table that the
  // caller owns, or null when it is not a well-formed PMT section (wrong
  // table id, lengths that disagree with size or run past their loop, bad
  // CRC). The ints and pointers are not used. Any thread.
  static TPMTTable* parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                          TPMTTable*);

  unsigned short getProgramNumber() const { return getTableIdExtension(); }
  unsigned short getPcrPid() const { return m_usPcrPid; }
  // The programme's own descriptors (program_info).
  const TDescriptorList& getDescriptors() const { return m_lstDescriptors; }
  unsigned int getStreamCount() const { return m_uiStreamCount; }
  const Stream& getStream(unsigned int index) const { return m_pStreams[index]; }
  // The first stream with this PID, or null.
  const Stream* findStream(unsigned short pid) const;

 private:
  bool parseBody(const unsigned char* data, unsigned int size);

  unsigned short m_usPcrPid;
  TDescriptorList m_lstDescriptors;
  // The streams, in the arena; m_uiStreamCount of them are constructed.
  Stream* m_pStreams;
  unsigned int m_uiStreamCount;
};

}  // namespace Ostrel

#endif  // OSTREL_TPMT_TABLE_H
