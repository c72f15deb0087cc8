#ifndef OSTREL_SIM_SCAN_REPORT_H
#define OSTREL_SIM_SCAN_REPORT_H

#include <string>

#include "ChannelScan.h"

namespace Ostrel {

// Writes a scan's result for people (a channel table and the requests'
// outcomes) or for programs (JSON with the same content).
class ScanReport {
 public:
  // The channel table: network, transport stream, delivery, broadcast time
  // and one line per service. Deterministic for a given stream.
  static std::string channelTable(const ChannelScan::Result& result);
  // One line per request: what, key, outcome and, with latencies, how long it took.
  static std::string requestTable(const ChannelScan::Result& result, bool latencies);
  static std::string json(const ChannelScan::Result& result, bool latencies);

  // "YYYY-MM-DD hh:mm:ss" of seconds since 1970 (UTC, proleptic Gregorian).
  static std::string formatTime(long long seconds);
  static std::string streamTypeName(unsigned char type);
  static std::string serviceTypeName(unsigned char type);
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SCAN_REPORT_H
