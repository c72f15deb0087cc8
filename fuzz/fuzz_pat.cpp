// libFuzzer target: TPATTable::parse, and a parsed PAT rebuilt and reparsed.
#include <memory>

#include "FuzzTables.h"
#include "TPATBuilder.h"
#include "TPATTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned char> in = OstrelFuzz::section(data, size);
  std::unique_ptr<Ostrel::TPATTable> pat(Ostrel::TPATTable::parse(
      in.data(), static_cast<unsigned int>(in.size()), 1, 1, nullptr, nullptr));
  if (!pat)
    return 0;
  if (in != OstrelFuzz::section(data, size))
    std::abort();  // the input is not written to
  Ostrel::TPATBuilder builder;
  builder.setTransportStreamId(pat->getTransportStreamId())
      .setVersion(pat->getVersionNumber())
      .setCurrentNext(pat->isCurrentNext())
      .setSectionNumber(pat->getSectionNumber(), pat->getLastSectionNumber());
  for (unsigned int i = 0; i < pat->getProgramCount(); ++i) {
    builder.addProgram(pat->getProgram(i).programNumber, pat->getProgram(i).pid);
  }
  std::vector<unsigned char> again = builder.build();
  std::unique_ptr<Ostrel::TPATTable> back(Ostrel::TPATTable::parse(
      again.data(), static_cast<unsigned int>(again.size()), 1, 1, nullptr, nullptr));
  // What was read once must survive writing and reading again.
  if (!back || back->getProgramCount() != pat->getProgramCount())
    std::abort();
  for (unsigned int i = 0; i < pat->getProgramCount(); ++i) {
    if (back->getProgram(i).pid != pat->getProgram(i).pid ||
        back->getProgram(i).programNumber != pat->getProgram(i).programNumber) {
      std::abort();
    }
  }
  return 0;
}
