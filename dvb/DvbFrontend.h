#ifndef OSTREL_DVB_FRONTEND_H
#define OSTREL_DVB_FRONTEND_H

#include <string>

namespace Ostrel {

// What a Linux DVB frontend device says of itself, read without tuning it
// (opened read-only, so a tuning program may hold it meanwhile).
class DvbFrontend {
 public:
  // Tuner types given in the tuner list.
  static const unsigned char kUnknown = 0;
  static const unsigned char kTerrestrial = 1;  // ISDB-T, DVB-T/T2, ATSC, DTMB
  static const unsigned char kSatellite = 2;    // ISDB-S, DVB-S/S2, ...
  static const unsigned char kCable = 3;        // ISDB-C, DVB-C

  // Opens path, reads FE_GET_INFO and the delivery systems (FE_GET_PROPERTY
  // DTV_ENUM_DELSYS, else FE_GET_INFO's type) and writes the tuner type: the
  // first of terrestrial, satellite, cable that any of its delivery systems
  // is, else kUnknown. False (logged) when the device cannot be opened or
  // FE_GET_INFO fails.
  static bool probe(const std::string& path, unsigned char* type, std::string* name);

 private:
  DvbFrontend();
};

}  // namespace Ostrel

#endif  // OSTREL_DVB_FRONTEND_H
