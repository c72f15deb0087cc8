#ifndef OSTREL_T_SECTION_MATCH_H
#define OSTREL_T_SECTION_MATCH_H

namespace Ostrel {

// Which sections answer a table request (tuner, PID, table id, table id
// extension): the same tuner and PID, a table_id equal to the table id and,
// where the extension is compared, a table_id_extension equal to it. The
// extension is compared only for long-form sections of tables whose extension
// the middleware knows before it asks (a PMT's programme number, an EIT's
// service id, ...). It is not compared for the PAT (0x00), the CAT (0x01), the
// NIT (0x40, 0x41), the SDT (0x42, 0x46), nor for short-form sections (the TDT
// 0x70 and TOT 0x73 among them), whose extensions (transport stream id,
// network id) a receiver learns only from the table itself. Every server that
// filters sections uses this rule: the simulator, the DVB server, and a
// receiver integration's own server (docs/integration.md). Header-only.
struct TSectionMatch {
  // True when the extension of a request for tableId takes part in matching.
  static bool isExtensionCompared(short tableId) {
    switch (static_cast<unsigned short>(tableId)) {
      case 0x00:  // PAT: transport stream id
      case 0x01:  // CAT: reserved
      case 0x40:  // NIT actual: network id
      case 0x41:  // NIT other
      case 0x42:  // SDT actual: transport stream id
      case 0x46:  // SDT other
      case 0x70:  // TDT: short form
      case 0x73:  // TOT: short form
        return false;
      default:
        return true;
    }
  }

  // Whether the section's header (the tuner and PID already match) answers a
  // request for tableId and tableIdExt.
  static bool matches(short tableId, short tableIdExt, const unsigned char* section,
                      unsigned int size) {
    if (size < 3 || section[0] != static_cast<unsigned short>(tableId)) {
      return false;
    }
    if (!isExtensionCompared(tableId) || (section[1] & 0x80) == 0) {
      return true;
    }
    return size >= 5 && ((section[3] << 8) | section[4]) == static_cast<unsigned short>(tableIdExt);
  }
};

}  // namespace Ostrel

#endif  // OSTREL_T_SECTION_MATCH_H
