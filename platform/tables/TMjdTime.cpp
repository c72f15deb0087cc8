#include "TMjdTime.h"

namespace Ostrel {

namespace {

const long long kSecondsPerDay = 86400;

unsigned char toBcd(int value) {
  return static_cast<unsigned char>(((value / 10) << 4) | (value % 10));
}

}  // namespace

int TMjdTime::bcd(unsigned char b) {
  int hi = b >> 4;
  int lo = b & 0x0F;
  if (hi > 9 || lo > 9)
    return -1;
  return hi * 10 + lo;
}

bool TMjdTime::decodeHhmmss(const unsigned char* p, int* seconds) {
  int h = bcd(p[0]);
  int m = bcd(p[1]);
  int s = bcd(p[2]);
  if (h < 0 || m < 0 || s < 0 || h > 23 || m > 59 || s > 59)
    return false;
  *seconds = h * 3600 + m * 60 + s;
  return true;
}

bool TMjdTime::decodeHhmm(const unsigned char* p, int* seconds) {
  int h = bcd(p[0]);
  int m = bcd(p[1]);
  if (h < 0 || m < 0 || m > 59)
    return false;
  *seconds = h * 3600 + m * 60;
  return true;
}

bool TMjdTime::encodeHhmm(int seconds, unsigned char* p) {
  if (seconds < 0 || seconds % 60 != 0 || seconds / 3600 > 99)
    return false;
  p[0] = toBcd(seconds / 3600);
  p[1] = toBcd((seconds / 60) % 60);
  return true;
}

bool TMjdTime::decodeDateTime(const unsigned char* p, long long* seconds) {
  unsigned int mjd = (static_cast<unsigned int>(p[0]) << 8) | p[1];
  int timeOfDay = 0;
  if (!decodeHhmmss(p + 2, &timeOfDay))
    return false;
  *seconds = (static_cast<long long>(mjd) - kUnixEpochMjd) * kSecondsPerDay + timeOfDay;
  return true;
}

bool TMjdTime::encodeDateTime(long long seconds, unsigned char* p) {
  long long days = seconds / kSecondsPerDay;
  long long rest = seconds % kSecondsPerDay;
  if (rest < 0) {
    rest += kSecondsPerDay;
    --days;
  }
  long long mjd = days + kUnixEpochMjd;
  if (mjd < 0 || mjd > 0xFFFF)
    return false;
  int timeOfDay = static_cast<int>(rest);
  p[0] = static_cast<unsigned char>(mjd >> 8);
  p[1] = static_cast<unsigned char>(mjd & 0xFF);
  p[2] = toBcd(timeOfDay / 3600);
  p[3] = toBcd((timeOfDay / 60) % 60);
  p[4] = toBcd(timeOfDay % 60);
  return true;
}

}  // namespace Ostrel
