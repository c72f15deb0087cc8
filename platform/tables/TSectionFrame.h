#ifndef OSTREL_TSECTION_FRAME_H
#define OSTREL_TSECTION_FRAME_H

#include "TSectionReader.h"

namespace Ostrel {

// The framing shared by every section: table_id, section_syntax_indicator,
// a 12-bit section_length, the body and (for most tables) a CRC_32.
class TSectionFrame {
 public:
  // Largest whole sections: PSI and the SI tables of this library, and
  // private sections that allow the long form.
  static const unsigned int kMaxPsiSectionSize = 1024;
  static const unsigned int kMaxPrivateSectionSize = 4096;
  static const unsigned int kHeaderSize = 3;
  static const unsigned int kCrcSize = 4;

  // Checks that data[0..size) is exactly one section: size covers the header
  // and section_length to the byte (nothing missing, nothing after), the whole
  // is at most maxSize, the syntax indicator is `syntax` and, when hasCrc,
  // the CRC_32 is right. On success *body covers the bytes between the
  // 3-byte header and the CRC (or the end). The table id is the caller's check.
  static bool open(const unsigned char* data, unsigned int size, bool syntax, bool hasCrc,
                   unsigned int maxSize, TSectionReader* body);

  // The body of a section already checked by open(): the bytes between the
  // 3-byte header and the CRC (or the end), for a copy of those checked bytes.
  static TSectionReader body(const unsigned char* section, unsigned int size, bool hasCrc) {
    return TSectionReader(section + kHeaderSize, size - kHeaderSize - (hasCrc ? kCrcSize : 0));
  }
};

}  // namespace Ostrel

#endif  // OSTREL_TSECTION_FRAME_H
