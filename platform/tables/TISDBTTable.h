#ifndef OSTREL_TISDBT_TABLE_H
#define OSTREL_TISDBT_TABLE_H

namespace Ostrel {

// A parsed PSI/SI table of the table library. Its type code tells which table
// it is; derived classes expose the content. Destroyed through the virtual
// destructor by whoever owns it.
class TISDBTTable {
 public:
  // Type codes reported by getType().
  static const unsigned int kTypePat = 0x00000000u;
  static const unsigned int kTypeNit = 0x00100000u;
  static const unsigned int kTypeSdt = 0x00110000u;
  static const unsigned int kTypeTot = 0x00140000u;
  static const unsigned int kTypePmt = 0xFFFF0002u;
  static const unsigned int kTypeUnknown = 0xFFFFFFFFu;

  TISDBTTable();
  explicit TISDBTTable(unsigned int type);
  virtual ~TISDBTTable();

  virtual unsigned int getType() const;

 private:
  unsigned int m_uiType;
};

}  // namespace Ostrel

#endif  // OSTREL_TISDBT_TABLE_H
