#ifndef OSTREL_SECTION_GATHERER_H
#define OSTREL_SECTION_GATHERER_H

#include <stdint.h>

#include <map>
#include <vector>

namespace Ostrel {

// The one rule for "this table has come", for one request key.
//
// A long-form table has come when every section from 0 to
// last_section_number of one version (and one extension) has been delivered;
// a section of another version or extension starts the table over. A
// short-form section (TDT, TOT) is a table by itself. A repetition (the same
// bytes as the section delivered under its number) is never delivered twice,
// while a section whose bytes differ from the one delivered under the same
// version and number is delivered again: the first copy may have been one the
// table library refused. Sections offered while nobody asks are kept (the
// latest copy per number) until they are taken, so a section carried once is
// not lost between two requests.
//
// Sections given to offer must be whole and have passed their CRC check.
// Not thread-safe: its owner guards it.
class SectionGatherer {
 public:
  SectionGatherer();

  // Takes in one section; false when it is a repetition or malformed.
  bool offer(const unsigned char* section, unsigned int size);
  // The same, taking the bytes out of *section when it keeps them (*section
  // then holds what it no longer needs) instead of copying them.
  bool offerOwned(std::vector<unsigned char>* section);

  // Whether a section waits to be delivered.
  bool hasWaiting() const { return !m_mapWaiting.empty(); }

  // Moves the next waiting section (lowest number first) into *section and
  // records it as delivered. False when none waits.
  bool take(std::vector<unsigned char>* section);

  // Whether every section of the current table has been delivered.
  bool isComplete() const;

  // Forgets everything: the next section offered starts a new table.
  void reset();

  // How many sections of the current table have been delivered, of how many.
  unsigned int getDeliveredCount() const { return m_uiDelivered; }
  unsigned int getSectionCount() const { return m_bTracking ? m_ucLastSection + 1u : 0u; }

  static uint64_t fingerprint(const unsigned char* data, unsigned int size);

 private:
  bool m_bTracking;
  bool m_bShortForm;
  unsigned short m_usExtension;
  unsigned char m_ucVersion;
  unsigned char m_ucLastSection;
  struct Waiting {
    uint64_t print;
    std::vector<unsigned char> section;
  };

  // The place a section offered is kept in; null when it is not kept.
  Waiting* admit(const unsigned char* section, unsigned int size);

  unsigned int m_uiDelivered;     // section numbers of the current table delivered
  uint64_t m_aullDelivered[256];  // fingerprint per section number; 0: not delivered
  std::map<unsigned int, Waiting> m_mapWaiting;
};

}  // namespace Ostrel

#endif  // OSTREL_SECTION_GATHERER_H
