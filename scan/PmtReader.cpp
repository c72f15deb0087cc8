#include "ScanTables.h"
#include "TPMTTable.h"

namespace Ostrel {

// A PMT: the PCR PID and the elementary streams of one programme.
void ScanTables::readPmt(const TPMTTable& table) {
  ChannelScan::Service& service = m_mapPmts[table.getProgramNumber()];
  service.pmt = ChannelScan::kDelivered;
  service.pmtVersion = table.getVersionNumber();
  service.pcrPid = table.getPcrPid();
  service.streams.clear();
  for (unsigned int i = 0; i < table.getStreamCount(); ++i) {
    const TPMTTable::Stream& entry = table.getStream(i);
    ChannelScan::Stream stream;
    stream.type = entry.getStreamType();
    stream.pid = entry.getPid();
    unsigned char tag = 0;
    if (entry.getComponentTag(&tag)) {
      stream.componentTag = tag;
    }
    service.streams.push_back(stream);
  }
}

}  // namespace Ostrel
