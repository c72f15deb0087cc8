#include "ScanReport.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <vector>

#include "RequestTrace.h"

namespace Ostrel {

namespace {

std::string hex(unsigned int value, int digits) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%0*X", digits, value);
  return text;
}

// Width in characters, not bytes: UTF-8 continuation bytes take no column.
size_t columnsOf(const std::string& text) {
  size_t columns = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
      ++columns;
    }
  }
  return columns;
}

std::string pad(const std::string& text, size_t width) {
  size_t columns = columnsOf(text);
  return columns >= width ? text + " " : text + std::string(width - columns, ' ');
}

// Rows of cells written in columns at least as wide as given, wider where a
// cell needs it (two blanks apart); the last cell of a row is not padded.
std::string columns(const std::vector<std::vector<std::string>>& rows, std::vector<size_t> widths) {
  for (const auto& row : rows) {
    for (size_t i = 0; i + 1 < row.size() && i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], columnsOf(row[i]) + 2);
    }
  }
  std::string out;
  for (const auto& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      out += i + 1 < row.size() ? pad(row[i], widths[i]) : row[i];
    }
    out += "\n";
  }
  return out;
}

std::string offsetText(int seconds) {
  char text[16];
  int magnitude = seconds < 0 ? -seconds : seconds;
  std::snprintf(text, sizeof(text), "UTC%c%02d:%02d", seconds < 0 ? '-' : '+', magnitude / 3600,
                (magnitude % 3600) / 60);
  return text;
}

const char* guardIntervalName(int guard) {
  static const char* const kNames[] = {"1/32", "1/16", "1/8", "1/4"};
  return guard >= 0 && guard < 4 ? kNames[guard] : "?";
}

std::string frequencyText(unsigned long long hz) {
  char text[32];
  std::snprintf(text, sizeof(text), "%llu.%06llu MHz", hz / 1000000ull, hz % 1000000ull);
  return text;
}

std::string quoted(const std::string& raw) {
  return "\"" + ScanReport::escape(raw) + "\"";
}

std::string number(long long value) {
  return std::to_string(value);
}

std::string milliseconds(double ms, int decimals) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.*f", decimals, ms);
  return text;
}

// A fact: its key, its JSON value, its text and the column that shows it.
ReportModel::Field fact(const std::string& key, const std::string& json, const std::string& text,
                        size_t column = 0) {
  ReportModel::Field field;
  field.key = key;
  field.json = json;
  field.text = text;
  field.column = column;
  return field;
}

// Where a service's PMT stands, in the same words in the text and the JSON.
std::string pmtState(const ChannelScan::Service& service) {
  return service.inPat ? ChannelScan::outcomeName(service.pmt) : "not in the PAT";
}

bool hasPmt(const ChannelScan::Service& service) {
  return service.inPat &&
         (service.pmt == ChannelScan::kDelivered || service.pmt == ChannelScan::kFromCache);
}

// The streams of a service's PMT: JSON objects, and the text's list in which
// the PCR PID and component tags are marked.
ReportModel::Field streamsFact(const ChannelScan::Service& service) {
  std::string json = "[", text;
  for (size_t i = 0; i < service.streams.size(); ++i) {
    const ChannelScan::Stream& stream = service.streams[i];
    const std::string name = ScanReport::streamTypeName(stream.type);
    json +=
        (i ? ", " : "") + std::string("{\"type\": ") + number(stream.type) +
        ", \"typeName\": " + quoted(name) + ", \"pid\": " + number(stream.pid) +
        ", \"componentTag\": " + (stream.componentTag >= 0 ? number(stream.componentTag) : "null") +
        "}";
    std::vector<std::string> marks;
    if (stream.pid == service.pcrPid) {
      marks.push_back("PCR");
    }
    if (stream.componentTag >= 0) {
      marks.push_back("tag " + hex(static_cast<unsigned int>(stream.componentTag), 2));
    }
    text += (i ? ", " : "") + name + " " + hex(stream.pid, 4);
    for (size_t k = 0; k < marks.size(); ++k) {
      text += (k ? ", " : " (") + marks[k] + (k + 1 == marks.size() ? ")" : "");
    }
  }
  return fact("streams", json + "]", text.empty() ? "no streams" : text, 5);
}

ReportModel::Record serviceRecord(const ChannelScan::Service& s) {
  ReportModel::Record r;
  r.push_back(fact("id", number(s.id), hex(s.id, 4), 0));
  r.push_back(fact("type", number(s.type), "", 1));
  r.push_back(fact("typeName", quoted(s.inSdt ? ScanReport::serviceTypeName(s.type) : ""),
                   s.inSdt ? ScanReport::serviceTypeName(s.type) : "?", 1));
  r.push_back(
      fact("oneSeg", s.partialReception ? "true" : "false", s.partialReception ? " 1seg" : "", 1));
  r.push_back(fact("name", quoted(s.name), s.inSdt ? ScanReport::escape(s.name) : "?", 2));
  r.push_back(
      fact("provider", quoted(s.provider), s.inSdt ? ScanReport::escape(s.provider) : "?", 3));
  r.push_back(
      fact("pmtPid", s.inPat ? number(s.pmtPid) : "null", s.inPat ? hex(s.pmtPid, 4) : "-", 4));
  const bool whole = hasPmt(s);
  r.push_back(
      fact("pmt", quoted(pmtState(s)), whole ? "" : (s.inPat ? "PMT " : "") + pmtState(s), 5));
  if (whole) {
    bool marked = false;
    for (size_t i = 0; i < s.streams.size(); ++i) {
      marked = marked || s.streams[i].pid == s.pcrPid;
    }
    r.push_back(streamsFact(s));
    // The PCR PID is marked on its stream; a PCR of its own PID is named.
    r.push_back(fact("pcrPid", number(s.pcrPid), marked ? "" : ", PCR " + hex(s.pcrPid, 4), 5));
  }
  return r;
}

// The limits of a table's repetition, as analysers check them: PAT and PMT at
// least every 0.5 s; NIT, BAT, SDT other and EIT present/following other at
// least every 10 s; SDT actual and EIT present/following actual every 2 s;
// TDT and TOT every 30 s; and the SI tables (from the NIT on) no sooner than
// 25 ms after the one before with the same PID, table id and extension.
struct TableLimit {
  unsigned char first, last;
  const char* name;
  double minMs, maxMs;  // -1: none
};
const TableLimit kTableLimits[] = {
    {0x00, 0x00, "PAT", -1, 500},         {0x01, 0x01, "CAT", -1, -1},
    {0x02, 0x02, "PMT", -1, 500},         {0x40, 0x40, "NIT", 25, 10000},
    {0x41, 0x41, "NIT other", 25, 10000}, {0x42, 0x42, "SDT", 25, 2000},
    {0x46, 0x46, "SDT other", 25, 10000}, {0x4A, 0x4A, "BAT", 25, 10000},
    {0x4E, 0x4E, "EIT p/f", 25, 2000},    {0x4F, 0x4F, "EIT p/f other", 25, 10000},
    {0x50, 0x5F, "EIT schedule", 25, -1}, {0x60, 0x6F, "EIT schedule other", 25, -1},
    {0x70, 0x70, "TDT", 25, 30000},       {0x73, 0x73, "TOT", 25, 30000},
};

TableLimit limitOf(unsigned char tableId) {
  for (const TableLimit& limit : kTableLimits) {
    if (tableId >= limit.first && tableId <= limit.last) {
      return limit;
    }
  }
  TableLimit none = {tableId, tableId, "", -1, -1};
  return none;
}

// A count that may not be visible: null and "n/a", never 0.
ReportModel::Field countFact(const std::string& key, long long value, size_t column) {
  return value < 0 ? fact(key, "null", "n/a", column)
                   : fact(key, number(value), number(value), column);
}

ReportModel::Field msFact(const std::string& key, double ms, size_t column) {
  return ms < 0 ? fact(key, "null", "n/a", column)
                : fact(key, milliseconds(ms, 3), milliseconds(ms, 1) + " ms", column);
}

void addHealth(const StreamHealth* health, ReportModel* model) {
  ReportModel::Part summary;
  summary.key = "health";
  summary.label = "Health";
  summary.group = ReportModel::kHealth;
  summary.present = health != NULL;
  summary.absent = "(not measured)";
  if (health) {
    ReportModel::Record r;
    if (health->measured) {
      char seconds[32];
      std::snprintf(seconds, sizeof(seconds), "%.3f", health->streamSeconds);
      r.push_back(fact("streamSeconds", seconds, std::string(seconds) + " s of stream"));
      r.push_back(fact("clock", health->byPcr ? "\"PCR\"" : "\"bit rate\"",
                       health->byPcr ? " by its PCR" : " at its bit rate"));
      const std::string rate = number(static_cast<long long>(health->bitRate));
      r.push_back(health->byPcr ? fact("bitRate", "null", "")
                                : fact("bitRate", rate, ", assumed " + rate + " bit/s"));
    } else {
      r.push_back(fact("streamSeconds", "null", "stream time not seen (section filters)"));
      r.push_back(fact("clock", "null", ""));
      r.push_back(fact("bitRate", "null", ""));
    }
    summary.records.push_back(r);
  }
  model->parts.push_back(summary);

  ReportModel::Part pids;
  pids.key = "healthPids";
  pids.shape = ReportModel::kTable;
  pids.group = ReportModel::kHealth;
  pids.headings = {"PID", "Packets", "CRC errors", "CC errors"};
  pids.widths = {8, 10, 12};
  ReportModel::Part tables;
  tables.key = "healthTables";
  tables.shape = ReportModel::kTable;
  tables.group = ReportModel::kHealth;
  tables.headings = {"Table",    "PID",     "Extension", "Sections",
                     "Shortest", "Longest", "Limits",    "Verdict"};
  tables.widths = {15, 8, 11, 10, 12, 12, 20};
  for (size_t i = 0; health && i < health->pids.size(); ++i) {
    const StreamHealth::Pid& p = health->pids[i];
    ReportModel::Record r;
    r.push_back(fact("pid", number(p.pid), hex(p.pid, 4), 0));
    r.push_back(health->measured ? fact("packets", number(static_cast<long long>(p.packets)),
                                        number(static_cast<long long>(p.packets)), 1)
                                 : fact("packets", "null", "n/a", 1));
    r.push_back(countFact("crcErrors", p.crcErrors, 2));
    r.push_back(countFact("ccErrors", p.ccErrors, 3));
    pids.records.push_back(r);
  }
  for (size_t i = 0; health && i < health->tables.size(); ++i) {
    const StreamHealth::Table& t = health->tables[i];
    const TableLimit limit = limitOf(t.tableId);
    const std::string name = *limit.name ? limit.name : "table " + hex(t.tableId, 2);
    ReportModel::Record r;
    r.push_back(fact("tableName", quoted(name), name, 0));
    r.push_back(fact("pid", number(t.pid), hex(t.pid, 4), 1));
    r.push_back(fact("tableId", number(t.tableId), "", 0));
    r.push_back(fact("tableIdExt", number(t.tableIdExt), hex(t.tableIdExt, 4), 2));
    r.push_back(fact("sections", number(static_cast<long long>(t.sections)),
                     number(static_cast<long long>(t.sections)), 3));
    r.push_back(msFact("minMs", t.minMs, 4));
    r.push_back(msFact("maxMs", t.maxMs, 5));
    const std::string least = milliseconds(limit.minMs, 0) + " ms";
    r.push_back(limit.minMs < 0 ? fact("limitMinMs", "null", "", 6)
                                : fact("limitMinMs", milliseconds(limit.minMs, 0), least, 6));
    const std::string most = milliseconds(limit.maxMs, 0) + " ms";
    r.push_back(limit.maxMs >= 0
                    ? fact("limitMaxMs", milliseconds(limit.maxMs, 0),
                           (limit.minMs < 0 ? "up to " : " to ") + most, 6)
                    : fact("limitMaxMs", "null", limit.minMs < 0 ? "none" : " or more", 6));
    // Measured against the limits: null when there is nothing to compare.
    const bool soon = limit.minMs >= 0 && t.minMs >= 0 && t.minMs < limit.minMs;
    const bool late = limit.maxMs >= 0 && t.maxMs > limit.maxMs;
    const bool compared = (limit.minMs >= 0 && t.minMs >= 0) || (limit.maxMs >= 0 && t.maxMs >= 0);
    const std::string verdict = soon && late ? "too soon and too late"
                                : soon       ? "too soon"
                                : late       ? "too late"
                                             : "ok";
    r.push_back(compared ? fact("verdict", quoted(verdict), verdict, 7)
                         : fact("verdict", "null", "n/a", 7));
    tables.records.push_back(r);
  }
  model->parts.push_back(pids);
  model->parts.push_back(tables);
}

// The text of one record's fields in one column.
std::string cell(const ReportModel::Record& record, size_t column) {
  std::string text;
  for (size_t i = 0; i < record.size(); ++i) {
    if (record[i].column == column) {
      text += record[i].text;
    }
  }
  return text;
}

std::string objectJson(const ReportModel::Record& record) {
  std::string out = "{";
  for (size_t i = 0; i < record.size(); ++i) {
    out += (i ? ", " : "") + quoted(record[i].key) + ": " + record[i].json;
  }
  return out + "}";
}

// The text of the parts of one group.
std::string textOf(const ReportModel& model, ReportModel::Group group) {
  std::string out;
  for (const ReportModel::Part& part : model.parts) {
    if (part.group != group) {
      continue;
    }
    const std::string label = part.label.empty() ? "" : pad(part.label, 11);
    if (part.shape == ReportModel::kTable) {
      if (part.records.empty() && group == ReportModel::kHealth) {
        continue;
      }
      std::vector<std::vector<std::string>> rows(1, part.headings);
      for (const ReportModel::Record& record : part.records) {
        rows.push_back(std::vector<std::string>());
        for (size_t c = 0; c < part.headings.size(); ++c) {
          rows.back().push_back(cell(record, c));
        }
      }
      out += (out.empty() ? "" : "\n") + columns(rows, part.widths);
    } else if (!part.present) {
      out += part.absent.empty() ? "" : label + part.absent + "\n";
    } else {
      for (const ReportModel::Record& record : part.records) {
        out += label + cell(record, 0) + "\n";
      }
    }
  }
  return out;
}

}  // namespace

std::string ScanReport::escape(const std::string& raw) {
  std::string out;
  for (size_t i = 0; i < raw.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(raw[i]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c == '\r' || c == '\n') {
      // CR LF, CR alone and LF alone are each one line break.
      if (c == '\r' && i + 1 < raw.size() && raw[i + 1] == '\n') {
        ++i;
      }
      out += "\\n";
    } else if (c < 0x20 || c == 0x7F) {
      char code[8];
      std::snprintf(code, sizeof(code), "\\u%04x", c);
      out += code;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string ScanReport::formatTime(long long seconds) {
  long long days = seconds >= 0 ? seconds / 86400 : -((-seconds + 86399) / 86400);
  long long rest = seconds - days * 86400;
  // Civil date from a day count (days since 1970-01-01).
  long long z = days + 719468;
  long long era = (z >= 0 ? z : z - 146096) / 146097;
  long long doe = z - era * 146097;
  long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  long long year = yoe + era * 400;
  long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  long long mp = (5 * doy + 2) / 153;
  long long day = doy - (153 * mp + 2) / 5 + 1;
  long long month = mp < 10 ? mp + 3 : mp - 9;
  if (month <= 2) {
    ++year;
  }
  char text[128];
  std::snprintf(text, sizeof(text), "%04lld-%02lld-%02lld %02lld:%02lld:%02lld", year, month, day,
                rest / 3600, (rest % 3600) / 60, rest % 60);
  return text;
}

std::string ScanReport::streamTypeName(unsigned char type) {
  switch (type) {
    case 0x01:
      return "video MPEG-1";
    case 0x02:
      return "video MPEG-2";
    case 0x03:
    case 0x04:
      return "audio MPEG";
    case 0x06:
      return "private PES";
    case 0x0B:
    case 0x0C:
    case 0x0D:
      return "DSM-CC";
    case 0x0F:
      return "audio AAC";
    case 0x11:
      return "audio AAC-LATM";
    case 0x1B:
      return "video H.264";
    case 0x24:
      return "video HEVC";
    default:
      return "type " + hex(type, 2);
  }
}

std::string ScanReport::serviceTypeName(unsigned char type) {
  switch (type) {
    case 0x01:
      return "TV";
    case 0x02:
      return "radio";
    case 0xA1:
      return "special video";
    case 0xC0:
      return "data";
    default:
      return hex(type, 2);
  }
}

namespace {

// A part shown on one line of the channel table, after its label; absent:
// what the line says without it (empty: no line).
ReportModel::Part line(const char* key, const char* label, bool present, const char* absent) {
  ReportModel::Part part;
  part.key = key;
  part.label = label;
  part.present = present;
  part.absent = absent;
  return part;
}

}  // namespace

ReportModel ScanReport::model(const ChannelScan::Result& r, const StreamHealth* health,
                              bool latencies) {
  ReportModel model;
  ReportModel::Part network = line("network", "Network", r.hasNit, "(no NIT)");
  if (r.hasNit) {
    network.records.push_back(
        {fact("id", number(r.networkId), hex(r.networkId, 4)),
         fact("name", quoted(r.networkName), " " + quoted(r.networkName)),
         fact("version", number(r.nitVersion), ", version " + number(r.nitVersion))});
  }
  model.parts.push_back(network);

  ReportModel::Part ts = line("transportStream", "Transport", r.hasPat, "(no PAT)");
  if (r.hasPat) {
    ReportModel::Record record;
    record.push_back(fact("id", number(r.transportStreamId), hex(r.transportStreamId, 4)));
    record.push_back(fact("name", r.tsName.empty() ? "null" : quoted(r.tsName),
                          r.tsName.empty() ? "" : " " + quoted(r.tsName)));
    record.push_back(r.hasSdt ? fact("originalNetworkId", number(r.originalNetworkId),
                                     ", original network " + hex(r.originalNetworkId, 4))
                              : fact("originalNetworkId", "null", ""));
    record.push_back(r.remoteControlKeyId >= 0
                         ? fact("remoteControlKeyId", number(r.remoteControlKeyId),
                                ", remote control key " + number(r.remoteControlKeyId))
                         : fact("remoteControlKeyId", "null", ""));
    ts.records.push_back(record);
  }
  model.parts.push_back(ts);

  // The delivery the NIT gives: with or without a PAT.
  ReportModel::Part delivery = line("delivery", "Delivery", !r.frequenciesHz.empty(), "");
  if (delivery.present) {
    std::string json = "[", text;
    for (size_t i = 0; i < r.frequenciesHz.size(); ++i) {
      json += (i ? ", " : "") + std::to_string(r.frequenciesHz[i]);
      text += (i ? ", " : "") + frequencyText(r.frequenciesHz[i]);
    }
    delivery.records.push_back(
        {fact("frequenciesHz", json + "]", text),
         fact("transmissionMode", r.transmissionMode >= 0 ? number(r.transmissionMode) : "null",
              ", mode " + (r.transmissionMode >= 0 ? number(r.transmissionMode) : "?")),
         fact("guardInterval", quoted(guardIntervalName(r.guardInterval)),
              ", guard interval " + std::string(guardIntervalName(r.guardInterval)))});
  }
  model.parts.push_back(delivery);

  ReportModel::Part time = line("time", "Time", r.hasTot, "(no TOT)");
  if (r.hasTot) {
    ReportModel::Record record;
    if (r.hasLocalOffset) {
      const std::string local = formatTime(r.utcSeconds + r.localOffsetSeconds);
      record.push_back(fact("local", quoted(local), local + " local"));
      record.push_back(fact("offsetSeconds", number(r.localOffsetSeconds),
                            " (" + offsetText(r.localOffsetSeconds) + "), "));
    }
    record.push_back(
        fact("utc", quoted(formatTime(r.utcSeconds)), formatTime(r.utcSeconds) + " UTC"));
    record.push_back(fact("utcSeconds", number(r.utcSeconds), ""));
    time.records.push_back(record);
  }
  model.parts.push_back(time);

  ReportModel::Part incomplete;
  incomplete.key = "incomplete";
  incomplete.label = "Incomplete";
  incomplete.shape = ReportModel::kLines;
  incomplete.bare = true;
  for (size_t i = 0; i < r.incomplete.size(); ++i) {
    incomplete.records.push_back({fact("", quoted(r.incomplete[i]), escape(r.incomplete[i]))});
  }
  model.parts.push_back(incomplete);

  ReportModel::Part services;
  services.key = "services";
  services.shape = ReportModel::kTable;
  services.headings = {"Service", "Type", "Name", "Provider", "PMT", "Streams"};
  services.widths = {9, 11, 16, 10, 8};
  for (size_t i = 0; i < r.services.size(); ++i) {
    services.records.push_back(serviceRecord(r.services[i]));
  }
  model.parts.push_back(services);

  ReportModel::Part requests;
  requests.key = "requests";
  requests.shape = ReportModel::kTable;
  requests.group = ReportModel::kRequests;
  requests.headings = {"Request", "PID", "Table", "Outcome"};
  requests.widths = {15, 8, 7, 12};
  if (latencies) {
    requests.headings.push_back("Latency");
  }
  for (size_t i = 0; i < r.requests.size(); ++i) {
    const ChannelScan::Request& q = r.requests[i];
    const unsigned short pid = static_cast<unsigned short>(q.pid);
    const unsigned char tableId = static_cast<unsigned char>(q.tableId);
    ReportModel::Record record;
    record.push_back(fact("what", quoted(q.what), escape(q.what), 0));
    record.push_back(fact("pid", number(pid), hex(pid, 4), 1));
    record.push_back(fact("tableId", number(tableId), hex(tableId, 2), 2));
    // A PMT's extension is its programme, named in what; the others ask with 0.
    record.push_back(fact("tableIdExt", number(static_cast<unsigned short>(q.tableIdExt)), "", 0));
    record.push_back(fact("outcome", quoted(ChannelScan::outcomeName(q.outcome)),
                          ChannelScan::outcomeName(q.outcome), 3));
    if (q.outcome == ChannelScan::kFailed) {
      record.push_back(fact("errorCode", number(q.errorCode), " (" + number(q.errorCode) + ")", 3));
    }
    if (latencies) {
      const bool ended = q.endedMs >= 0;
      const double ms = q.endedMs - q.sentMs;
      record.push_back(fact("latencyMs", ended ? milliseconds(ms, 3) : "null",
                            ended ? milliseconds(ms, 1) + " ms" : "", 4));
    }
    requests.records.push_back(record);
  }
  model.parts.push_back(requests);
  addHealth(health, &model);
  return model;
}

std::string ScanReport::channelTable(const ReportModel& model) {
  return textOf(model, ReportModel::kChannels);
}

std::string ScanReport::requestTable(const ReportModel& model) {
  return textOf(model, ReportModel::kRequests);
}

std::string ScanReport::healthTable(const ReportModel& model) {
  return textOf(model, ReportModel::kHealth);
}

std::string ScanReport::json(const ReportModel& model) {
  std::string out = "{";
  for (size_t p = 0; p < model.parts.size(); ++p) {
    const ReportModel::Part& part = model.parts[p];
    out += std::string(p ? "," : "") + "\n  " + quoted(part.key) + ": ";
    if (!part.present) {
      out += "null";
    } else if (part.shape == ReportModel::kLine) {
      out += part.records.empty() ? "null" : objectJson(part.records[0]);
    } else if (part.bare) {
      out += "[";
      for (size_t i = 0; i < part.records.size(); ++i) {
        out += (i ? ", " : "") + part.records[i][0].json;
      }
      out += "]";
    } else {
      out += "[";
      for (size_t i = 0; i < part.records.size(); ++i) {
        out += std::string(i ? "," : "") + "\n    " + objectJson(part.records[i]);
      }
      out += part.records.empty() ? "]" : "\n  ]";
    }
  }
  return out + "\n}\n";
}

std::string ScanReport::channelTable(const ChannelScan::Result& result) {
  return channelTable(model(result, NULL, false));
}

std::string ScanReport::requestTable(const ChannelScan::Result& result, bool latencies) {
  return requestTable(model(result, NULL, latencies));
}

std::string ScanReport::json(const ChannelScan::Result& result, bool latencies) {
  return json(model(result, NULL, latencies));
}

}  // namespace Ostrel
