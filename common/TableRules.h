#ifndef OSTREL_TABLE_RULES_H
#define OSTREL_TABLE_RULES_H

namespace Ostrel {

// What the library does with a request key's PID and table id: the time-out
// of a request, the follower's category (which decides whether a request can
// be followed at all) and the parser of injected sections. One table for the
// three, so they cannot drift apart. Internal.
struct TableRule {
  // The follower's category lists, in the registry's order.
  enum Category { kPat, kCat, kNit, kSdt, kEitPf, kEitSchedule, kTot, kPid26, kPmt, kNone };
  enum Parser { kParsePat, kParseNit, kParseSdt, kParseTot, kParsePmt, kParseNothing };

  unsigned int timeOutSeconds;  // 1 (logged by the core) for kNone
  Category category;
  Parser parser;

  // The rule of (pid, tableId): PID compared as unsigned 16-bit, table id as
  // signed 16-bit; the table id extension takes no part.
  static TableRule of(short pid, short tableId) {
    switch (static_cast<unsigned short>(pid)) {
      case 0x0000:
        return make(2, kPat, kParsePat);
      case 0x0001:
        return make(20, kCat, kParseNothing);
      case 0x0010:
        return make(4, kNit, kParseNit);
      case 0x0011:
        return make(4, kSdt, kParseSdt);
      case 0x0012:
        return tableId == 0x4E || tableId == 0x4F ? make(6, kEitPf, kParseNothing)
                                                  : make(60, kEitSchedule, kParseNothing);
      case 0x0014:
        return make(60, kTot, kParseTot);
      case 0x0024:
        return make(4, kNit, kParseNothing);
      case 0x0026:
        return make(6, kPid26, kParseNothing);
      default:
        return tableId == 0x02 ? make(2, kPmt, kParsePmt) : make(1, kNone, kParseNothing);
    }
  }

  static TableRule make(unsigned int seconds, Category category, Parser parser) {
    TableRule rule = {seconds, category, parser};
    return rule;
  }
};

}  // namespace Ostrel

#endif  // OSTREL_TABLE_RULES_H
