// libFuzzer target: text decoding gives valid UTF-8, and what it gives
// encodes and decodes back to itself.
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzTables.h"
#include "TTextCodec.h"

namespace {

bool validUtf8(const std::string& s) {
  size_t i = 0;
  while (i < s.size()) {
    unsigned char b = static_cast<unsigned char>(s[i]);
    size_t more;
    if (b < 0x80) {
      more = 0;
    } else if ((b & 0xE0) == 0xC0) {
      more = 1;
    } else if ((b & 0xF0) == 0xE0) {
      more = 2;
    } else if ((b & 0xF8) == 0xF0) {
      more = 3;
    } else {
      return false;
    }
    if (i + more >= s.size())
      return false;
    for (size_t k = 1; k <= more; ++k) {
      if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80)
        return false;
    }
    i += more + 1;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned char> in(data, data + size);
  std::string text = Ostrel::TTextCodec::decode(in.data(), static_cast<unsigned int>(in.size()));
  if (!validUtf8(text))
    std::abort();
  std::vector<unsigned char> encoded = Ostrel::TTextCodec::encode(text);
  std::string again =
      Ostrel::TTextCodec::decode(encoded.data(), static_cast<unsigned int>(encoded.size()));
  if (again != text)
    std::abort();
  return 0;
}
