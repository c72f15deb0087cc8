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

// Names as broadcast, with control characters, quotes and backslashes
// escaped the same way in every output.
std::string text(const std::string& raw) {
  return RequestTrace::escape(raw);
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

// Where a service's PMT stands, in the same words in the text and the JSON.
std::string pmtState(const ChannelScan::Service& service) {
  return service.inPat ? ChannelScan::outcomeName(service.pmt) : "not in the PAT";
}

std::string streamsText(const ChannelScan::Service& service) {
  if (!service.inPat) {
    return pmtState(service);
  }
  if (service.pmt != ChannelScan::kDelivered && service.pmt != ChannelScan::kFromCache) {
    return "PMT " + pmtState(service);
  }
  std::string text;
  for (size_t i = 0; i < service.streams.size(); ++i) {
    const ChannelScan::Stream& stream = service.streams[i];
    if (i > 0) {
      text += ", ";
    }
    text += ScanReport::streamTypeName(stream.type) + " " + hex(stream.pid, 4);
    if (stream.pid == service.pcrPid) {
      text += " (PCR)";
    }
  }
  return text.empty() ? "no streams" : text;
}

std::string quoted(const std::string& text) {
  return "\"" + RequestTrace::escape(text) + "\"";
}

}  // namespace

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

std::string ScanReport::channelTable(const ChannelScan::Result& r) {
  std::ostringstream out;
  if (r.hasNit) {
    out << "Network    " << hex(r.networkId, 4) << " " << quoted(r.networkName) << "\n";
  } else {
    out << "Network    (no NIT)\n";
  }
  if (r.hasPat) {
    out << "Transport  " << hex(r.transportStreamId, 4);
    if (!r.tsName.empty()) {
      out << " " << quoted(r.tsName);
    }
    if (r.hasSdt) {
      out << ", original network " << hex(r.originalNetworkId, 4);
    }
    if (r.remoteControlKeyId >= 0) {
      out << ", remote control key " << r.remoteControlKeyId;
    }
    out << "\n";
  } else {
    out << "Transport  (no PAT)\n";
  }
  if (!r.frequenciesHz.empty()) {
    out << "Delivery   ";
    for (size_t i = 0; i < r.frequenciesHz.size(); ++i) {
      out << (i ? ", " : "") << frequencyText(r.frequenciesHz[i]);
    }
    out << ", mode " << r.transmissionMode << ", guard interval "
        << guardIntervalName(r.guardInterval) << "\n";
  }
  if (r.hasTot) {
    if (r.hasLocalOffset) {
      out << "Time       " << formatTime(r.utcSeconds + r.localOffsetSeconds) << " local ("
          << offsetText(r.localOffsetSeconds) << "), " << formatTime(r.utcSeconds) << " UTC\n";
    } else {
      out << "Time       " << formatTime(r.utcSeconds) << " UTC\n";
    }
  } else {
    out << "Time       (no TOT)\n";
  }
  for (size_t i = 0; i < r.incomplete.size(); ++i) {
    out << "Incomplete " << r.incomplete[i] << "\n";
  }
  std::vector<std::vector<std::string>> rows;
  rows.push_back({"Service", "Type", "Name", "Provider", "PMT", "Streams"});
  for (size_t i = 0; i < r.services.size(); ++i) {
    const ChannelScan::Service& s = r.services[i];
    std::string type = s.inSdt ? serviceTypeName(s.type) : "?";
    if (s.partialReception) {
      type += " 1seg";
    }
    rows.push_back({hex(s.id, 4), type, s.inSdt ? text(s.name) : "?",
                    s.inSdt ? text(s.provider) : "?", s.inPat ? hex(s.pmtPid, 4) : "-",
                    streamsText(s)});
  }
  out << "\n" << columns(rows, {9, 11, 16, 10, 8});
  return out.str();
}

std::string ScanReport::requestTable(const ChannelScan::Result& r, bool latencies) {
  std::vector<std::vector<std::string>> rows;
  rows.push_back({"Request", "PID", "Table", "Outcome"});
  if (latencies) {
    rows[0].push_back("Latency");
  }
  for (size_t i = 0; i < r.requests.size(); ++i) {
    const ChannelScan::Request& q = r.requests[i];
    std::string outcome = ChannelScan::outcomeName(q.outcome);
    if (q.outcome == ChannelScan::kFailed) {
      outcome += " (" + std::to_string(q.errorCode) + ")";
    }
    rows.push_back({q.what, hex(static_cast<unsigned short>(q.pid), 4),
                    hex(static_cast<unsigned char>(q.tableId), 2), outcome});
    if (latencies) {
      char latency[32] = "";
      if (q.endedMs >= 0) {
        std::snprintf(latency, sizeof(latency), "%.1f ms", q.endedMs - q.sentMs);
      }
      rows.back().push_back(latency);
    }
  }
  return columns(rows, {15, 8, 7, 12});
}

std::string ScanReport::json(const ChannelScan::Result& r, bool latencies) {
  std::ostringstream out;
  out << "{\n  \"network\": ";
  if (r.hasNit) {
    out << "{\"id\": " << r.networkId << ", \"name\": " << quoted(r.networkName)
        << ", \"version\": " << static_cast<int>(r.nitVersion) << "}";
  } else {
    out << "null";
  }
  out << ",\n  \"transportStream\": ";
  if (r.hasPat) {
    out << "{\"id\": " << r.transportStreamId << ", \"name\": " << quoted(r.tsName)
        << ", \"originalNetworkId\": " << r.originalNetworkId
        << ", \"remoteControlKeyId\": " << r.remoteControlKeyId << ", \"frequenciesHz\": [";
    for (size_t i = 0; i < r.frequenciesHz.size(); ++i) {
      out << (i ? ", " : "") << r.frequenciesHz[i];
    }
    out << "], \"transmissionMode\": " << r.transmissionMode
        << ", \"guardInterval\": " << quoted(guardIntervalName(r.guardInterval)) << "}";
  } else {
    out << "null";
  }
  // The delivery the NIT gives, as the text's Delivery line: with or without a PAT.
  out << ",\n  \"delivery\": ";
  if (!r.frequenciesHz.empty()) {
    out << "{\"frequenciesHz\": [";
    for (size_t i = 0; i < r.frequenciesHz.size(); ++i) {
      out << (i ? ", " : "") << r.frequenciesHz[i];
    }
    out << "], \"transmissionMode\": " << r.transmissionMode
        << ", \"guardInterval\": " << quoted(guardIntervalName(r.guardInterval)) << "}";
  } else {
    out << "null";
  }
  out << ",\n  \"time\": ";
  if (r.hasTot) {
    out << "{\"utc\": " << quoted(formatTime(r.utcSeconds)) << ", \"utcSeconds\": " << r.utcSeconds;
    if (r.hasLocalOffset) {
      out << ", \"local\": " << quoted(formatTime(r.utcSeconds + r.localOffsetSeconds))
          << ", \"offsetSeconds\": " << r.localOffsetSeconds;
    }
    out << "}";
  } else {
    out << "null";
  }
  out << ",\n  \"incomplete\": [";
  for (size_t i = 0; i < r.incomplete.size(); ++i) {
    out << (i ? ", " : "") << quoted(r.incomplete[i]);
  }
  out << "],\n  \"services\": [";
  for (size_t i = 0; i < r.services.size(); ++i) {
    const ChannelScan::Service& s = r.services[i];
    out << (i ? "," : "") << "\n    {\"id\": " << s.id << ", \"type\": " << static_cast<int>(s.type)
        << ", \"typeName\": " << quoted(s.inSdt ? serviceTypeName(s.type) : "")
        << ", \"name\": " << quoted(s.name) << ", \"provider\": " << quoted(s.provider)
        << ", \"oneSeg\": " << (s.partialReception ? "true" : "false")
        << ", \"pmtPid\": " << (s.inPat ? std::to_string(s.pmtPid) : "null")
        << ", \"pmt\": " << quoted(pmtState(s));
    if (s.pmt == ChannelScan::kDelivered) {
      out << ", \"pcrPid\": " << s.pcrPid << ", \"streams\": [";
      for (size_t k = 0; k < s.streams.size(); ++k) {
        const ChannelScan::Stream& st = s.streams[k];
        out << (k ? ", " : "") << "{\"type\": " << static_cast<int>(st.type)
            << ", \"typeName\": " << quoted(streamTypeName(st.type)) << ", \"pid\": " << st.pid
            << ", \"componentTag\": "
            << (st.componentTag >= 0 ? std::to_string(st.componentTag) : "null") << "}";
      }
      out << "]";
    }
    out << "}";
  }
  out << "\n  ],\n  \"requests\": [";
  for (size_t i = 0; i < r.requests.size(); ++i) {
    const ChannelScan::Request& q = r.requests[i];
    out << (i ? "," : "") << "\n    {\"what\": " << quoted(q.what)
        << ", \"pid\": " << static_cast<unsigned short>(q.pid)
        << ", \"tableId\": " << static_cast<unsigned short>(q.tableId)
        << ", \"tableIdExt\": " << static_cast<unsigned short>(q.tableIdExt)
        << ", \"outcome\": " << quoted(ChannelScan::outcomeName(q.outcome));
    if (q.outcome == ChannelScan::kFailed) {
      out << ", \"errorCode\": " << q.errorCode;
    }
    if (latencies && q.endedMs >= 0) {
      char text[32];
      std::snprintf(text, sizeof(text), "%.3f", q.endedMs - q.sentMs);
      out << ", \"latencyMs\": " << text;
    }
    out << "}";
  }
  out << "\n  ]\n}\n";
  return out.str();
}

}  // namespace Ostrel
