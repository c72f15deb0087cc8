#include "ScanTables.h"

#include "TLongSectionTable.h"

namespace Ostrel {

bool ScanTables::Gather::file(const TLongSectionTable& table, bool* fresh, bool* reset) {
  *fresh = false;
  *reset = false;
  if (table.isCurrentNext()) {
    // The header alone tells a section of the table from another.
    const unsigned short ext = table.getTableIdExtension();
    const unsigned char header[8] = {
        table.getTableId(),
        0xB0,
        0x05,
        static_cast<unsigned char>(ext >> 8),
        static_cast<unsigned char>(ext & 0xFF),
        static_cast<unsigned char>(0xC1 | (table.getVersionNumber() << 1)),
        table.getSectionNumber(),
        table.getLastSectionNumber()};
    std::vector<unsigned char> taken;
    *fresh = sections.offer(header, sizeof(header)) && sections.take(&taken);
    *reset = *fresh && sections.getDeliveredCount() == 1;
  }
  return !sections.isComplete();
}

std::string ScanTables::Gather::note(const char* name) const {
  if (sections.getSectionCount() == 0 || sections.isComplete()) {
    return std::string();
  }
  return std::string(name) + ": " + std::to_string(sections.getDeliveredCount()) + " of " +
         std::to_string(sections.getSectionCount()) + " sections";
}

void ScanTables::endPmt(unsigned short program, ChannelScan::Outcome outcome) {
  m_mapPmts[program].pmt = outcome;
}

ChannelScan::Result ScanTables::compose() const {
  ChannelScan::Result out = m_result;
  std::map<unsigned short, ChannelScan::Service> byId;
  std::vector<unsigned short> order;
  for (const auto& section : m_mapPatSections) {
    for (const PatEntry& entry : section.second) {
      ChannelScan::Service& service = byId[entry.program];
      if (!service.inPat) {
        order.push_back(entry.program);
      }
      service.id = entry.program;
      service.inPat = true;
      service.pmtPid = entry.pid;
    }
  }
  for (const auto& section : m_mapSdtSections) {
    for (const SdtEntry& entry : section.second) {
      ChannelScan::Service& service = byId[entry.id];
      if (!service.inPat && !service.inSdt) {
        order.push_back(entry.id);
      }
      service.id = entry.id;
      service.inSdt = true;
      service.type = entry.type;
      service.name = entry.name;
      service.provider = entry.provider;
    }
  }
  // This stream's entry in the NIT: by transport stream id and, once the
  // SDT has named it, original network id.
  const bool knowTs = m_result.hasPat || m_result.hasSdt;
  const unsigned short tsId = m_result.hasPat ? m_result.transportStreamId : m_usSdtTsId;
  const NitEntry* mine = NULL;
  for (const auto& section : m_mapNitSections) {
    for (const NitEntry& entry : section.second) {
      if (!mine && knowTs && entry.tsId == tsId &&
          (!m_result.hasSdt || entry.originalNetworkId == m_result.originalNetworkId)) {
        mine = &entry;
      }
    }
  }
  if (mine) {
    out.tsName = mine->tsName;
    out.remoteControlKeyId = mine->remoteControlKeyId;
    out.frequenciesHz = mine->frequenciesHz;
    out.transmissionMode = mine->transmissionMode;
    out.guardInterval = mine->guardInterval;
  }
  for (size_t i = 0; i < order.size(); ++i) {
    ChannelScan::Service service = byId[order[i]];
    std::map<unsigned short, ChannelScan::Service>::const_iterator pmt = m_mapPmts.find(service.id);
    if (pmt != m_mapPmts.end()) {
      service.pmt = pmt->second.pmt;
      service.pmtVersion = pmt->second.pmtVersion;
      service.pcrPid = pmt->second.pcrPid;
      service.streams = pmt->second.streams;
    }
    if (mine) {
      for (size_t k = 0; k < mine->partialReception.size(); ++k) {
        service.partialReception =
            service.partialReception || mine->partialReception[k] == service.id;
      }
    }
    out.services.push_back(service);
  }
  const std::string notes[] = {m_gatherPat.note("PAT"), m_gatherNit.note("NIT"),
                               m_gatherSdt.note("SDT")};
  for (const std::string& note : notes) {
    if (!note.empty()) {
      out.incomplete.push_back(note);
    }
  }
  return out;
}

}  // namespace Ostrel
