#ifndef OSTREL_SIM_SCAN_REPORT_H
#define OSTREL_SIM_SCAN_REPORT_H

#include <string>
#include <vector>

#include "ChannelScan.h"
#include "StreamHealth.h"

namespace Ostrel {

// What a scan found, as facts: built once from its result (and the stream's
// health), then written for people (a channel table, the requests' outcomes,
// the health when asked) or for programs (JSON). Each fact carries both of
// its forms, decided here, so the two writings say the same.
struct ReportModel {
  struct Field {
    std::string key;   // JSON key
    std::string json;  // JSON value as written: a number, "text", true, null, [...]
    // As the text shows it, with what leads it (", mode 3"). Empty for a code
    // whose name the field before shows, and for a flag that is false.
    std::string text;
    size_t column = 0;  // the table column it is shown in
  };
  typedef std::vector<Field> Record;  // one JSON object, one line of text
  enum Shape { kLine, kLines, kTable };
  enum Group { kChannels, kRequests, kHealth };  // which text section shows it
  struct Part {
    std::string key;    // JSON key
    std::string label;  // text: what begins its lines ("Network")
    Shape shape = kLine;
    Group group = kChannels;
    bool present = true;                // false: JSON null, and the text says absent
    std::string absent;                 // the text without it ("(no NIT)"); empty: no line
    bool bare = false;                  // each record is one value, not an object (JSON)
    std::vector<std::string> headings;  // kTable
    std::vector<size_t> widths;         // kTable: least column widths
    std::vector<Record> records;
  };
  std::vector<Part> parts;
};

// Writes a scan's result for people (a channel table and the requests'
// outcomes) or for programs (JSON with the same content).
class ScanReport {
 public:
  // The facts of a scan; health null when the source shows none.
  static ReportModel model(const ChannelScan::Result& result, const StreamHealth* health,
                           bool latencies);

  // The channel table: network, transport stream, delivery, broadcast time
  // and one line per service. Deterministic for a given stream.
  static std::string channelTable(const ReportModel& model);
  // One line per request: what, key, outcome and, with latencies, how long it took.
  static std::string requestTable(const ReportModel& model);
  // Per PID its errors, per table its repetition beside its limits.
  static std::string healthTable(const ReportModel& model);
  static std::string json(const ReportModel& model);

  // The same, of a result without health.
  static std::string channelTable(const ChannelScan::Result& result);
  static std::string requestTable(const ChannelScan::Result& result, bool latencies);
  static std::string json(const ChannelScan::Result& result, bool latencies);

  // A name as broadcast, written alike everywhere: a line break (CR LF, CR or
  // LF) is "\n", other control characters "\u00XX", quotes and backslashes
  // escaped (JSON's string escapes).
  static std::string escape(const std::string& raw);
  // "YYYY-MM-DD hh:mm:ss" of seconds since 1970 (UTC, proleptic Gregorian).
  static std::string formatTime(long long seconds);
  static std::string streamTypeName(unsigned char type);
  static std::string serviceTypeName(unsigned char type);
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SCAN_REPORT_H
