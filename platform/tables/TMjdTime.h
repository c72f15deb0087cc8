#ifndef OSTREL_TMJD_TIME_H
#define OSTREL_TMJD_TIME_H

namespace Ostrel {

// Dates and times as sections carry them: a 16-bit Modified Julian Date
// followed by hours, minutes and seconds in BCD (40 bits), and BCD durations
// (hhmm, hhmmss). Seconds are 64-bit: the MJD range (1858-11-17 to
// 2038-04-22) passes both ends of a 32-bit time_t. Any thread; no state.
class TMjdTime {
 public:
  // MJD of 1970-01-01.
  static const unsigned int kUnixEpochMjd = 40587;

  // p[0..5): MJD + hhmmss BCD to seconds since 1970-01-01 00:00:00.
  // False when a digit is not BCD or a value is out of range (hour > 23,
  // minute or second > 59).
  static bool decodeDateTime(const unsigned char* p, long long* seconds);
  // The inverse; false when the date does not fit a 16-bit MJD.
  static bool encodeDateTime(long long seconds, unsigned char* p);

  // BCD hhmm (p[0..2)) to seconds; false on bad digits or minutes > 59.
  static bool decodeHhmm(const unsigned char* p, int* seconds);
  // BCD hhmmss (p[0..3)) to seconds; false on bad digits or out-of-range values.
  static bool decodeHhmmss(const unsigned char* p, int* seconds);
  // Writes seconds (0..99h59m) as BCD hhmm; false when out of range.
  static bool encodeHhmm(int seconds, unsigned char* p);

  // One BCD byte (two digits) to its value, or -1 when a digit is above 9.
  static int bcd(unsigned char b);
};

}  // namespace Ostrel

#endif  // OSTREL_TMJD_TIME_H
