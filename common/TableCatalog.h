#ifndef OSTREL_TABLE_CATALOG_H
#define OSTREL_TABLE_CATALOG_H

#include <stddef.h>
#include <string.h>

#include "TISDBTTable.h"

namespace Ostrel {

// Every table the receiver names, one row each: where it is carried (PID and
// table ids), whether a request's extension selects it, the time-out of a
// request for it, the follower's category, the parser of its sections and the
// type code of the parsed table, which makes it cacheable. The core, the
// follower, the server engine, the scan and the fuzzers all read this one
// table. Internal; header-only.
struct TableKind {
  // The follower's category lists, in the registry's order.
  enum Category { kPat, kCat, kNit, kSdt, kEitPf, kEitSchedule, kTot, kPid26, kPmt, kNone };
  enum Parser { kParsePat, kParseNit, kParseSdt, kParseTot, kParsePmt, kParseNothing };

  static const unsigned short kAnyPid = 0xFFFF;  // found by table id, on any PID
  static const unsigned int kNoType = TISDBTTable::kTypeUnknown;

  const char* name;
  unsigned short pid;
  unsigned char tableIds[4];  // two ranges, first and last of each; the first id is its own
  bool extensionCompared;     // false: the middleware learns it from the table itself
  unsigned int timeOutSeconds;
  Category category;
  Parser parser;
  unsigned int typeCode;  // kNoType: never cached

  bool carries(unsigned int tableId) const {
    return (tableId >= tableIds[0] && tableId <= tableIds[1]) ||
           (tableId >= tableIds[2] && tableId <= tableIds[3]);
  }

  // The rows, in lookup order (the first row of a PID is its rule for table
  // ids no row of it carries).
  static const TableKind* rows(size_t* count) {
    static const TableKind kRows[] = {
        {"PAT", 0x0000, {0x00, 0x00, 0x00, 0x00}, false, 2, kPat, kParsePat, TISDBTTable::kTypePat},
        {"CAT", 0x0001, {0x01, 0x01, 0x01, 0x01}, false, 20, kCat, kParseNothing, 0x00010000u},
        {"NIT", 0x0010, {0x40, 0x41, 0x40, 0x41}, false, 4, kNit, kParseNit, TISDBTTable::kTypeNit},
        {"SDT", 0x0011, {0x42, 0x42, 0x46, 0x46}, false, 4, kSdt, kParseSdt, TISDBTTable::kTypeSdt},
        {"EIT schedule",
         0x0012,
         {0x50, 0x6F, 0x50, 0x6F},
         true,
         60,
         kEitSchedule,
         kParseNothing,
         0x00120000u},
        {"EIT p/f actual",
         0x0012,
         {0x4E, 0x4E, 0x4E, 0x4E},
         true,
         6,
         kEitPf,
         kParseNothing,
         0x0012004Eu},
        {"EIT p/f other",
         0x0012,
         {0x4F, 0x4F, 0x4F, 0x4F},
         true,
         6,
         kEitPf,
         kParseNothing,
         0x0012004Fu},
        {"TOT",
         0x0014,
         {0x73, 0x73, 0x70, 0x70},
         false,
         60,
         kTot,
         kParseTot,
         TISDBTTable::kTypeTot},
        {"BIT", 0x0024, {0xC4, 0xC4, 0xC4, 0xC4}, true, 4, kNit, kParseNothing, 0x00240000u},
        {"M-EIT", 0x0026, {0x4E, 0x4F, 0x4E, 0x4F}, true, 6, kPid26, kParseNothing, 0x00260000u},
        {"PMT", kAnyPid, {0x02, 0x02, 0x02, 0x02}, true, 2, kPmt, kParsePmt, TISDBTTable::kTypePmt},
        {"AIT", kAnyPid, {0x74, 0x74, 0x74, 0x74}, true, 1, kNone, kParseNothing, 0xFFFF0074u},
    };
    *count = sizeof(kRows) / sizeof(kRows[0]);
    return kRows;
  }

  // The row of a request key (PID compared as unsigned 16-bit, table id as
  // signed 16-bit; the extension takes no part): the PID's row that carries
  // the table id, else the PID's first row, else a row on any PID that
  // carries it, else no table (time-out 1, no category, not parsed).
  static const TableKind& of(short pid, short tableId) {
    static const TableKind kUnknown = {
        "", kAnyPid, {0xFF, 0x00, 0xFF, 0x00}, true, 1, kNone, kParseNothing, kNoType};
    const unsigned short wirePid = static_cast<unsigned short>(pid);
    const unsigned int id =
        tableId >= 0 && tableId <= 0xFF ? static_cast<unsigned int>(tableId) : 0x100u;
    size_t count = 0;
    const TableKind* all = rows(&count);
    const TableKind* first = NULL;
    for (size_t i = 0; i < count; ++i) {
      if (all[i].pid != kAnyPid && all[i].pid == wirePid && all[i].carries(id)) {
        return all[i];
      }
      if (all[i].pid != kAnyPid && all[i].pid == wirePid && !first) {
        first = &all[i];
      }
    }
    for (size_t i = 0; !first && i < count; ++i) {
      if (all[i].pid == kAnyPid && all[i].carries(id)) {
        first = &all[i];
      }
    }
    return first ? *first : kUnknown;
  }

  // Whether a request's extension selects the table with this table id; true
  // for table ids no row carries.
  static bool isExtensionCompared(short tableId) {
    size_t count = 0;
    const TableKind* all = rows(&count);
    for (size_t i = 0; i < count; ++i) {
      if (tableId >= 0 && all[i].carries(static_cast<unsigned int>(tableId))) {
        return all[i].extensionCompared;
      }
    }
    return true;
  }

  static bool isCacheable(unsigned int typeCode) {
    size_t count = 0;
    const TableKind* all = rows(&count);
    for (size_t i = 0; i < count; ++i) {
      if (all[i].typeCode == typeCode) {
        return true;
      }
    }
    return false;
  }

  // The row of this name, or null.
  static const TableKind* named(const char* name) {
    size_t count = 0;
    const TableKind* all = rows(&count);
    for (size_t i = 0; i < count; ++i) {
      if (strcmp(all[i].name, name) == 0) {
        return &all[i];
      }
    }
    return NULL;
  }
};

}  // namespace Ostrel

#endif  // OSTREL_TABLE_CATALOG_H
