#ifndef OSTREL_SCAN_CHANNEL_FILES_H
#define OSTREL_SCAN_CHANNEL_FILES_H

#include <string>
#include <vector>

#include "ChannelScan.h"

namespace Ostrel {

// Writes the services a scan found as channel files that tuning programs
// read: the dvbv5 tools' key = value format (dvbv5-zap, libdvbv5) and VDR's
// channels.conf. One entry (or line) per service the PAT lists, with the
// delivery the NIT gives for the scanned transport stream; results without a
// PAT are left out.
class ChannelFiles {
 public:
  enum Format { kDvbv5, kVdr };

  // "dvbv5" or "vdr"; false for anything else.
  static bool parseFormat(const std::string& name, Format* format);
  // The format a file name implies: VDR's for a file named channels.conf or
  // ending in .vdr, else dvbv5 (dvbv5-scan's own files end in .conf too).
  static Format formatOf(const std::string& path);

  static std::string dvbv5(const std::vector<ChannelScan::Result>& results);
  static std::string vdr(const std::vector<ChannelScan::Result>& results);

  // What a file leaves out or guesses, one note per transport stream: no
  // frequency in the NIT, no service at all.
  static std::vector<std::string> gaps(const std::vector<ChannelScan::Result>& results);

  // Writes the file whole; false with "PATH: reason" in error.
  static bool write(const std::string& path, Format format,
                    const std::vector<ChannelScan::Result>& results, std::string* error);
};

}  // namespace Ostrel

#endif  // OSTREL_SCAN_CHANNEL_FILES_H
