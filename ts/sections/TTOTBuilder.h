#ifndef OSTREL_TTOT_BUILDER_H
#define OSTREL_TTOT_BUILDER_H

#include <vector>

namespace Ostrel {

// Writes a well-formed TOT section (table id 0x73, CRC) or, with buildTdt(),
// a TDT section (0x70, time only). Descriptors are wire bytes, e.g.
// TDescriptorBuilder::localTimeOffset(...). Not thread-safe.
class TTOTBuilder {
 public:
  TTOTBuilder();

  // UTC seconds since 1970-01-01; whole seconds, MJD range.
  TTOTBuilder& setUtcSeconds(long long seconds);
  TTOTBuilder& addDescriptor(const std::vector<unsigned char>& descriptor);
  // The TOT section, or empty when the time is out of range or the
  // descriptors do not fit.
  std::vector<unsigned char> build() const;
  // The TDT section for the same time, or empty when it is out of range.
  std::vector<unsigned char> buildTdt() const;

 private:
  bool timeBytes(std::vector<unsigned char>* out) const;

  long long m_llUtcSeconds;
  std::vector<unsigned char> m_vecDescriptors;
};

}  // namespace Ostrel

#endif  // OSTREL_TTOT_BUILDER_H
