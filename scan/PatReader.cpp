#include "ScanTables.h"
#include "TPATTable.h"

namespace Ostrel {

// The PAT: the transport stream id and, section by section, the programmes
// and their PMT PIDs; each programme's PMT is asked for once.
bool ScanTables::readPat(const TPATTable& table, std::vector<PatEntry>* more) {
  bool fresh = false, reset = false;
  const bool again = m_gatherPat.file(table, &fresh, &reset);
  if (reset) {
    m_mapPatSections.clear();
  }
  if (!fresh) {
    return again;
  }
  m_result.hasPat = true;
  m_result.transportStreamId = table.getTransportStreamId();
  m_result.patVersion = table.getVersionNumber();
  std::vector<PatEntry>& entries = m_mapPatSections[table.getSectionNumber()];
  for (unsigned int i = 0; i < table.getProgramCount(); ++i) {
    const TPATTable::Program& program = table.getProgram(i);
    if (program.programNumber == 0) {
      continue;  // the network PID
    }
    PatEntry entry = {program.programNumber, program.pid};
    entries.push_back(entry);
    if (m_setPmtAsked.insert(program.programNumber).second) {
      more->push_back(entry);
    }
  }
  return again;
}

}  // namespace Ostrel
