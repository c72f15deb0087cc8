#include "TSectionFrame.h"

#include "TCrc32.h"

namespace Ostrel {

const unsigned int TSectionFrame::kMaxPsiSectionSize;
const unsigned int TSectionFrame::kMaxPrivateSectionSize;
const unsigned int TSectionFrame::kHeaderSize;
const unsigned int TSectionFrame::kCrcSize;

bool TSectionFrame::open(const unsigned char* data, unsigned int size, bool syntax, bool hasCrc,
                         unsigned int maxSize, TSectionReader* body) {
  if (data == 0 || size < kHeaderSize || size > maxSize)
    return false;
  TSectionReader reader(data, size);
  reader.u8();  // table_id
  unsigned short flags = reader.u16();
  bool syntaxIndicator = (flags & 0x8000u) != 0;
  unsigned int sectionLength = flags & 0x0FFFu;
  if (syntaxIndicator != syntax)
    return false;
  if (sectionLength != size - kHeaderSize)
    return false;
  if (hasCrc) {
    if (sectionLength < kCrcSize)
      return false;
    if (TCrc32::compute(data, size) != 0)
      return false;
    *body = reader.sub(sectionLength - kCrcSize);
  } else {
    *body = reader.sub(sectionLength);
  }
  return body->ok();
}

}  // namespace Ostrel
