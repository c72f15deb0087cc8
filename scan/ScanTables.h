#ifndef OSTREL_SIM_SCAN_TABLES_H
#define OSTREL_SIM_SCAN_TABLES_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "ChannelScan.h"
#include "SectionGatherer.h"

namespace Ostrel {

class TLongSectionTable;
class TNITTable;
class TPATTable;
class TPMTTable;
class TSDTTable;
class TTOTTable;

// What a scan has read from the tables so far: one reader per table, each in
// a source of its own. The PAT, NIT and SDT are gathered section by section
// (current version). Not thread-safe: the scan calls it under its lock.
class ScanTables {
 public:
  struct PatEntry {
    unsigned short program;
    unsigned short pid;
  };

  // Each reads one table section; the PAT, NIT and SDT readers return true
  // when the table wants another section. PMTs to ask for go to *more.
  bool readPat(const TPATTable& table, std::vector<PatEntry>* more);
  bool readNit(const TNITTable& table);
  bool readSdt(const TSDTTable& table);
  void readTot(const TTOTTable& table);
  void readPmt(const TPMTTable& table);
  // A PMT request that ended without its table.
  void endPmt(unsigned short program, ChannelScan::Outcome outcome);

  // The channel table as far as it is known; no requests.
  ChannelScan::Result compose() const;

 private:
  // The sections of one long-form table gathered so far.
  // What "the table has come" means is the server engine's one rule
  // (SectionGatherer), here on the sections' headers.
  struct Gather {
    SectionGatherer sections;

    // Files one section; *fresh when its number is new to the current
    // version, *reset when it starts a table (whatever was gathered is void).
    // True when the table wants another section.
    bool file(const TLongSectionTable& table, bool* fresh, bool* reset);
    // "SDT: 2 of 5 sections" when incomplete, else empty.
    std::string note(const char* name) const;
  };

  struct SdtEntry {
    unsigned short id;
    unsigned char type;
    std::string name;
    std::string provider;
  };

  // One transport stream of the NIT with what the scan reports of it.
  struct NitEntry {
    unsigned short tsId = 0;
    unsigned short originalNetworkId = 0;
    std::string tsName;
    int remoteControlKeyId = -1;
    std::vector<unsigned long long> frequenciesHz;
    int transmissionMode = -1;
    int guardInterval = -1;
    std::vector<unsigned short> partialReception;
  };

  ChannelScan::Result m_result;  // the fields of single-section tables
  Gather m_gatherPat, m_gatherNit, m_gatherSdt;
  std::map<unsigned char, std::vector<PatEntry>> m_mapPatSections;
  std::map<unsigned char, std::vector<SdtEntry>> m_mapSdtSections;
  std::map<unsigned char, std::vector<NitEntry>> m_mapNitSections;
  unsigned short m_usSdtTsId = 0;
  std::set<unsigned short> m_setPmtAsked;
  std::map<unsigned short, ChannelScan::Service> m_mapPmts;  // by programme: PMT fields only
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SCAN_TABLES_H
