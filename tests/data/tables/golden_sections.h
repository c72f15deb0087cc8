#ifndef OSTREL_TESTS_TABLES_GOLDEN_SECTIONS_H
#define OSTREL_TESTS_TABLES_GOLDEN_SECTIONS_H

// Sections written by hand, field by field, from the tables' wire layouts.
// The CRC_32 of each was computed separately with the bit-by-bit MPEG-2 CRC.
// Shared by the table tests, the fuzz targets (as seeds) and the benchmarks.

#include <cstddef>

namespace OstrelGolden {

// One field (or one descriptor) per line, as written; not reflowed.
// clang-format off
// PAT: transport stream 0x0421, version 5, network PID and three programmes.
// 28 bytes.
const unsigned char kPat[] = {
    0x00,  // table_id
    0xB0, 0x19,  // syntax indicator, section_length = 25
    0x04, 0x21,  // table_id_extension 0x0421
    0xCB,  // version 5, current_next 1
    0x00,  // section_number
    0x00,  // last_section_number
    0x00, 0x00, 0xE0, 0x10,  // programme 0x0000 -> PID 0x0010
    0xE7, 0x60, 0xFF, 0xC8,  // programme 0xE760 -> PID 0x1FC8
    0xE7, 0x61, 0xFF, 0xC9,  // programme 0xE761 -> PID 0x1FC9
    0xE7, 0x78, 0xFF, 0xCA,  // programme 0xE778 -> PID 0x1FCA
    0x28, 0x17, 0xCD, 0x7F,  // CRC_32
};

// PAT with an empty programme loop.
// 12 bytes.
const unsigned char kPatEmpty[] = {
    0x00,  // table_id
    0xB0, 0x09,  // syntax indicator, section_length = 9
    0x00, 0x01,  // table_id_extension 0x0001
    0xC1,  // version 0, current_next 1
    0x00,  // section_number
    0x00,  // last_section_number
    0xEF, 0x22, 0x62, 0x17,  // CRC_32
};

// PMT: programme 0xE760, version 2, one programme descriptor, four streams.
// 59 bytes.
const unsigned char kPmt[] = {
    0x02,  // table_id
    0xB0, 0x38,  // syntax indicator, section_length = 56
    0xE7, 0x60,  // table_id_extension 0xE760
    0xC5,  // version 2, current_next 1
    0x00,  // section_number
    0x00,  // last_section_number
    0xE1, 0x11,  // PCR_PID 0x0111
    0xF0, 0x03,  // program_info_length 3
    0xC1, 0x01, 0x84,  // digital copy control (kept raw)
    0x1B, 0xE1, 0x11, 0xF0, 0x03,  // H.264 video PID 0x0111, ES_info_length 3
    0x52, 0x01, 0x00,  // stream identifier: component tag 0x00
    0x0F, 0xE1, 0x12, 0xF0, 0x09,  // AAC audio PID 0x0112, ES_info_length 9
    0x52, 0x01, 0x10,  // stream identifier: component tag 0x10
    0x0A, 0x04, 0x70, 0x6F, 0x72, 0x00,  // ISO 639 language 'por' (kept raw)
    0x06, 0xE1, 0x13, 0xF0, 0x08,  // private data PID 0x0113, ES_info_length 8
    0x52, 0x01, 0x30,  // stream identifier: component tag 0x30
    0xFD, 0x03, 0x00, 0x08, 0x3D,  // data component (kept raw)
    0x0D, 0xE1, 0x14, 0xF0, 0x00,  // DSM-CC PID 0x0114, no descriptors, ES_info_length 0
    0x18, 0x22, 0xC6, 0xB1,  // CRC_32
};

// PMT with no descriptors and no streams.
// 16 bytes.
const unsigned char kPmtEmpty[] = {
    0x02,  // table_id
    0xB0, 0x0D,  // syntax indicator, section_length = 13
    0x00, 0x01,  // table_id_extension 0x0001
    0xC1,  // version 0, current_next 1
    0x00,  // section_number
    0x00,  // last_section_number
    0xFF, 0xFF,  // PCR_PID 0x1FFF
    0xF0, 0x00,  // program_info_length 0
    0x1C, 0xC8, 0xD7, 0x3F,  // CRC_32
};

// NIT actual: network 0x0640, version 1, name and a raw descriptor, two transport streams.
// 86 bytes.
const unsigned char kNit[] = {
    0x40,  // table_id
    0xF0, 0x53,  // syntax indicator, section_length = 83
    0x06, 0x40,  // table_id_extension 0x0640
    0xC3,  // version 1, current_next 1
    0x00,  // section_number
    0x00,  // last_section_number
    0xF0, 0x0F,  // network_descriptors_length 15
    0x40, 0x09, 0x4F, 0x73, 0x74, 0x72, 0x65, 0x6C, 0x20, 0x54, 0x56,  // network name 'Ostrel TV'
    0xFE, 0x02, 0x03, 0x01,  // system management (kept raw)
    0xF0, 0x37,  // transport_stream_loop_length 55
    0x04, 0x21, 0x06, 0x40, 0xF0, 0x2B,  // transport stream 0x0421, original network 0x0640, descriptors 43
    0x41, 0x09, 0xE7, 0x60, 0x01, 0xE7, 0x61, 0x01, 0xE7, 0x78, 0xC0,  // service list: 0xE760/1, 0xE761/1, 0xE778/0xC0
    0xCD, 0x12, 0x05, 0x1A, 0x4F, 0x73, 0x74, 0x72, 0x65, 0x6C, 0x0F, 0x02, 0xE7, 0x60, 0xE7, 0x61, 0xAF, 0x01, 0xE7, 0x78,  // TS information: key 5, 'Ostrel', two transmission types
    0xFA, 0x06, 0x12, 0x3A, 0x0C, 0xF0, 0x0D, 0x1A,  // terrestrial delivery: area 0x123, GI 1/8, mode 3, 3312 and 3354 (1/7 MHz)
    0xFB, 0x02, 0xE7, 0x78,  // partial reception: 0xE778
    0x04, 0x22, 0x06, 0x40, 0xF0, 0x00,  // transport stream 0x0422, no descriptors
    0x1F, 0x38, 0xD3, 0x1F,  // CRC_32
};

// NIT other with both loops empty.
// 16 bytes.
const unsigned char kNitEmpty[] = {
    0x41,  // table_id
    0xF0, 0x0D,  // syntax indicator, section_length = 13
    0x06, 0x41,  // table_id_extension 0x0641
    0xC1,  // version 0, current_next 1
    0x00,  // section_number
    0x00,  // last_section_number
    0xF0, 0x00,  // network_descriptors_length 0
    0xF0, 0x00,  // transport_stream_loop_length 0
    0xA7, 0x12, 0x05, 0x7C,  // CRC_32
};

// SDT actual: transport stream 0x0421, version 7, three services.
// 65 bytes.
const unsigned char kSdt[] = {
    0x42,  // table_id
    0xF0, 0x3E,  // syntax indicator, section_length = 62
    0x04, 0x21,  // table_id_extension 0x0421
    0xCF,  // version 7, current_next 1
    0x00,  // section_number
    0x00,  // last_section_number
    0x06, 0x40, 0xFF,  // original_network_id 0x0640, reserved
    0xE7, 0x60, 0xE3, 0x80, 0x14,  // service 0xE760: EIT schedule and p/f, running, descriptors 20
    0x48, 0x12, 0x01, 0x06, 0x4F, 0x73, 0x74, 0x72, 0x65, 0x6C, 0x09, 0x4F, 0x73, 0x74, 0x72, 0x65, 0x6C, 0x20, 0x48, 0x44,  // service: type 1, 'Ostrel', 'Ostrel HD'
    0xE7, 0x78, 0xE1, 0x90, 0x0F,  // service 0xE778: EIT p/f, running, free_CA_mode, descriptors 15
    0x48, 0x0D, 0xC0, 0x00, 0x0A, 0x41, 0xE7, 0xE3, 0x6F, 0x20, 0x31, 0x73, 0x65, 0x67, 0x86,  // service: type 0xC0, no provider, 'Ação 1seg' in Latin-9 with an emphasis code
    0xE7, 0x61, 0xE0, 0x20, 0x00,  // service 0xE761: not running, descriptors 0
    0x8F, 0xE6, 0x57, 0xFF,  // CRC_32
};

// TOT: 2026-11-23 00:40:59 UTC with one local time offset.
// 29 bytes.
const unsigned char kTot[] = {
    0x73,  // table_id
    0x70, 0x1A,  // syntax indicator 0, section_length 26
    0xEF, 0xB7, 0x00, 0x40, 0x59,  // UTC 2026-11-23 00:40:59 (MJD 61367)
    0xF0, 0x0F,  // descriptors_loop_length
    0x58, 0x0D, 0x42, 0x52, 0x41, 0x07, 0x03, 0x00, 0xF0, 0x11, 0x02, 0x00, 0x00, 0x02, 0x00,  // local time offset: BRA, region 1, -03:00, change 2027-02-21 02:00:00, next -02:00
    0x5A, 0x3D, 0xD5, 0x5D,  // CRC_32
};

// TDT: the same time, no CRC.
// 8 bytes.
const unsigned char kTdt[] = {
    0x70,  // table_id
    0x70, 0x05,  // syntax indicator 0, section_length 5
    0xEF, 0xB7, 0x00, 0x40, 0x59,  // UTC 2026-11-23 00:40:59
};


// What the golden sections hold, for the assertions.
const long long kTotUtcSeconds = 1795394459;     // 2026-11-23 00:40:59 UTC
const long long kTotTimeOfChange = 1803175200;   // 2027-02-21 02:00:00 UTC
const unsigned short kTotMjd = 61367;

struct Section {
  const char* name;
  const unsigned char* data;
  unsigned int size;
};

#define OSTREL_GOLDEN(x) {#x, x, static_cast<unsigned int>(sizeof(x))}
const Section kAll[] = {OSTREL_GOLDEN(kPat), OSTREL_GOLDEN(kPatEmpty), OSTREL_GOLDEN(kPmt),
                        OSTREL_GOLDEN(kPmtEmpty), OSTREL_GOLDEN(kNit), OSTREL_GOLDEN(kNitEmpty),
                        OSTREL_GOLDEN(kSdt), OSTREL_GOLDEN(kTot), OSTREL_GOLDEN(kTdt)};
#undef OSTREL_GOLDEN
// clang-format on

}  // namespace OstrelGolden

#endif  // OSTREL_TESTS_TABLES_GOLDEN_SECTIONS_H
