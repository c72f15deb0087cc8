#ifndef OSTREL_TTEXT_CODEC_H
#define OSTREL_TTEXT_CODEC_H

#include <string>
#include <vector>

namespace Ostrel {

// Broadcast text (names of networks, services, providers) to and from UTF-8.
// The rule, as ISDB-Tb receivers show these strings:
// - A leading byte 0x15 marks the rest as UTF-8; invalid sequences in it
//   become U+FFFD.
// - Otherwise the bytes are ISO/IEC 8859-15 (Latin-9), the default character
//   table of ISDB-Tb, after skipping a leading table selector: 0x01..0x0B and
//   0x11..0x1F (one byte), 0x10 (three bytes); any other first byte is text.
// - Control codes: 0x0A, 0x0D and 0x8A become a line feed; every other code of
//   0x00..0x1F and 0x7F..0x9F (emphasis switches, padding) is dropped.
// Any thread; no state.
class TTextCodec {
 public:
  // UTF-8 text of data[0..size).
  static std::string decode(const unsigned char* data, unsigned int size);

  // Bytes that decode() turns back into utf8: Latin-9 when every character
  // has a Latin-9 form, else 0x15 followed by the UTF-8 itself.
  static std::vector<unsigned char> encode(const std::string& utf8);
};

}  // namespace Ostrel

#endif  // OSTREL_TTEXT_CODEC_H
