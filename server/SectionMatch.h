#ifndef OSTREL_SECTION_MATCH_H
#define OSTREL_SECTION_MATCH_H

namespace Ostrel {

// Which sections answer a table request (tuner, PID, table id, table id
// extension), and whether a section's CRC_32 holds.
//
// A section answers a request from the same tuner and PID when its table_id
// equals the table id and, where the extension is compared, its
// table_id_extension equals the extension. The extension is compared only
// for long-form sections of tables whose extension the middleware knows
// before it asks (a PMT's programme number, an EIT's service id, ...): not
// for the PAT (0x00), the CAT (0x01), the NIT (0x40, 0x41), the SDT (0x42,
// 0x46), nor for short-form sections (the TDT 0x70 and TOT 0x73 among them),
// whose extensions (transport stream id, network id) a receiver learns only
// from the table itself.
struct SectionMatch {
  // True when the extension of a request for tableId takes part in matching
  // (the table catalog says which tables).
  static bool isExtensionCompared(short tableId);

  // Whether the section's header (the tuner and PID already match) answers a
  // request for tableId and tableIdExt.
  static bool matches(short tableId, short tableIdExt, const unsigned char* section,
                      unsigned int size);

  // Whether the section carries a CRC_32: every long-form section, and the
  // TOT among the short-form ones.
  static bool hasCrc(const unsigned char* section, unsigned int size) {
    return size >= 3 && ((section[1] & 0x80) != 0 || section[0] == 0x73);
  }

  // MPEG-2 CRC_32 over the whole section, its CRC_32 included: 0 when it holds.
  static unsigned int crc(const unsigned char* data, unsigned int size);

  // Whether a whole section is fit to deliver: long enough for its header
  // and, where it carries one, with a CRC_32 that holds.
  static bool isIntact(const unsigned char* section, unsigned int size) {
    if (size < 3) {
      return false;
    }
    return !hasCrc(section, size) || (size >= 7 && crc(section, size) == 0);
  }
};

}  // namespace Ostrel

#endif  // OSTREL_SECTION_MATCH_H
