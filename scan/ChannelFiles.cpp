#include "ChannelFiles.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>

namespace Ostrel {

namespace {

bool isVideo(unsigned char type) {
  return type == 0x01 || type == 0x02 || type == 0x10 || type == 0x1B || type == 0x24;
}

bool isAudio(unsigned char type) {
  return type == 0x03 || type == 0x04 || type == 0x0F || type == 0x11 || type == 0x81;
}

// The services a channel file lists: those the PAT names (the others are not
// carried by the scanned stream).
bool listed(const ChannelScan::Service& s) {
  return s.inPat;
}

// Both formats are line-based: control characters in a name become spaces.
std::string printable(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      c = ' ';
  }
  return text;
}

std::string nameOf(const ChannelScan::Service& s) {
  return printable(s.name.empty() ? "Service " + std::to_string(s.id) : s.name);
}

unsigned short networkOf(const ChannelScan::Result& r) {
  return r.hasSdt ? r.originalNetworkId : r.networkId;
}

// ISDB-T modes 1, 2 and 3 are the 2K, 4K and 8K carriers.
const char* dvbv5Mode(int mode) {
  static const char* const names[] = {"AUTO", "2K", "4K", "8K"};
  return mode >= 1 && mode <= 3 ? names[mode] : names[0];
}

const char* dvbv5Guard(int guard) {
  static const char* const names[] = {"1/32", "1/16", "1/8", "1/4"};
  return guard >= 0 && guard <= 3 ? names[guard] : "AUTO";
}

bool partialReception(const ChannelScan::Result& r) {
  for (const ChannelScan::Service& s : r.services)
    if (s.partialReception)
      return true;
  return false;
}

// VDR splits the name field at ',' (short name) and ';' (provider) and the
// line at ':'.
std::string vdrText(std::string text) {
  for (char& c : text) {
    if (c == ':')
      c = '|';
    else if (c == ',' || c == ';')
      c = '.';
  }
  return text;
}

}  // namespace

bool ChannelFiles::parseFormat(const std::string& name, Format* format) {
  if (name == "dvbv5" || name == "vdr") {
    *format = name == "vdr" ? kVdr : kDvbv5;
    return true;
  }
  return false;
}

ChannelFiles::Format ChannelFiles::formatOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  const bool vdrSuffix = base.size() > 4 && base.compare(base.size() - 4, 4, ".vdr") == 0;
  return base == "channels.conf" || vdrSuffix ? kVdr : kDvbv5;
}

std::string ChannelFiles::dvbv5(const std::vector<ChannelScan::Result>& results) {
  std::ostringstream out;
  out << "# dvbv5 channel file written by ostrel-scan\n";
  for (const ChannelScan::Result& r : results) {
    if (!r.hasPat)
      continue;
    for (const ChannelScan::Service& s : r.services) {
      if (!listed(s))
        continue;
      std::string video, audio;
      std::map<unsigned char, std::string> others;  // PID_xx keys, by stream type
      for (const ChannelScan::Stream& e : s.streams) {
        std::string& list = isVideo(e.type) ? video : isAudio(e.type) ? audio : others[e.type];
        list += (list.empty() ? "" : " ") + std::to_string(e.pid);
      }
      out << "\n[" << nameOf(s) << "]\n\tSERVICE_ID = " << s.id
          << "\n\tNETWORK_ID = " << networkOf(r) << "\n\tTRANSPORT_ID = " << r.transportStreamId
          << "\n";
      if (!video.empty())
        out << "\tVIDEO_PID = " << video << "\n";
      if (!audio.empty())
        out << "\tAUDIO_PID = " << audio << "\n";
      for (const auto& o : others) {
        char key[16];
        std::snprintf(key, sizeof(key), "PID_%02x", o.first);
        out << "\t" << key << " = " << o.second << "\n";
      }
      out << "\tDELIVERY_SYSTEM = ISDBT\n";
      if (!r.frequenciesHz.empty())
        out << "\tFREQUENCY = " << r.frequenciesHz[0] << "\n";
      // The NIT carries no layer parameters (the TMCC does): the tuner finds
      // them. Partial reception puts the one-seg service alone in layer A.
      const bool partial = partialReception(r);
      out << "\tBANDWIDTH_HZ = 6000000\n\tINVERSION = AUTO\n\tTRANSMISSION_MODE = "
          << dvbv5Mode(r.transmissionMode) << "\n\tGUARD_INTERVAL = " << dvbv5Guard(r.guardInterval)
          << "\n\tISDBT_LAYER_ENABLED = 7\n"
          << "\tISDBT_PARTIAL_RECEPTION = " << (partial ? 1 : 0) << "\n"
          << "\tISDBT_SOUND_BROADCASTING = 0\n";
      for (const char* layer : {"A", "B", "C"}) {
        out << "\tISDBT_LAYER" << layer << "_FEC = AUTO\n\tISDBT_LAYER" << layer
            << "_MODULATION = QAM/AUTO\n";
      }
      if (partial)
        out << "\tISDBT_LAYERA_SEGMENT_COUNT = 1\n";
    }
  }
  return out.str();
}

std::string ChannelFiles::vdr(const std::vector<ChannelScan::Result>& results) {
  std::ostringstream out;
  for (const ChannelScan::Result& r : results) {
    if (!r.hasPat)
      continue;
    // VDR takes ISDB-T as terrestrial (source T) with 6 MHz channels;
    // guard interval as its divisor, transmission mode in K carriers.
    std::string params = "B6";
    if (r.guardInterval >= 0 && r.guardInterval <= 3)
      params += "G" + std::to_string(32 >> r.guardInterval);
    params += "I999";
    if (r.transmissionMode >= 1 && r.transmissionMode <= 3)
      params += "T" + std::to_string(1 << r.transmissionMode);
    const unsigned long long frequency = r.frequenciesHz.empty() ? 0 : r.frequenciesHz[0];
    for (const ChannelScan::Service& s : r.services) {
      if (!listed(s))
        continue;
      std::string vpid = "0", apids, dpids;
      for (const ChannelScan::Stream& e : s.streams) {
        if (isVideo(e.type) && vpid == "0") {
          vpid = std::to_string(e.pid);
          if (s.pcrPid != e.pid && s.pcrPid != 0 && s.pcrPid != 0x1FFF)
            vpid += "+" + std::to_string(s.pcrPid);
          vpid += "=" + std::to_string(e.type);
        } else if (e.type == 0x81) {
          dpids += (dpids.empty() ? "" : ",") + std::to_string(e.pid);
        } else if (isAudio(e.type)) {
          // MPEG audio plainly, AAC with its stream type.
          apids += (apids.empty() ? "" : ",") + std::to_string(e.pid);
          if (e.type == 0x0F || e.type == 0x11)
            apids += "@" + std::to_string(e.type);
        }
      }
      out << vdrText(nameOf(s)) << ";" << vdrText(printable(s.provider)) << ":" << frequency << ":"
          << params << ":T:0:" << vpid << ":" << (apids.empty() ? "0" : apids)
          << (dpids.empty() ? "" : ";" + dpids) << ":0:0:" << s.id << ":" << networkOf(r) << ":"
          << r.transportStreamId << ":0\n";
    }
  }
  return out.str();
}

std::vector<std::string> ChannelFiles::gaps(const std::vector<ChannelScan::Result>& results) {
  std::vector<std::string> notes;
  for (const ChannelScan::Result& r : results) {
    char ts[64];
    std::snprintf(ts, sizeof(ts), "transport stream %u", r.transportStreamId);
    if (!r.hasPat) {
      notes.push_back("a tuner without a PAT: left out");
      continue;
    }
    if (r.frequenciesHz.empty())
      notes.push_back(std::string(ts) + ": the NIT gives no frequency: none written");
    bool any = false;
    for (const ChannelScan::Service& s : r.services)
      any = any || listed(s);
    if (!any)
      notes.push_back(std::string(ts) + ": no service");
  }
  return notes;
}

bool ChannelFiles::write(const std::string& path, Format format,
                         const std::vector<ChannelScan::Result>& results, std::string* error) {
  const std::string text = format == kVdr ? vdr(results) : dvbv5(results);
  std::FILE* file = std::fopen(path.c_str(), "w");
  bool ok = file && std::fwrite(text.data(), 1, text.size(), file) == text.size();
  int code = errno;
  if (file) {
    ok = std::fflush(file) == 0 && ok;
    code = ok ? 0 : errno;
    ok = std::fclose(file) == 0 && ok;
    code = code ? code : errno;
  }
  if (!ok && error)
    *error = path + ": " + std::strerror(code ? code : EIO);
  return ok;
}

}  // namespace Ostrel
