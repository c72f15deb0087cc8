#include "TTextCodec.h"

namespace Ostrel {

namespace {

const unsigned char kUtf8Selector = 0x15;
const unsigned int kReplacement = 0xFFFD;

// The eight places where Latin-9 differs from Latin-1.
struct Latin9Difference {
  unsigned char byte;
  unsigned int codePoint;
};
const Latin9Difference kLatin9[] = {{0xA4, 0x20AC}, {0xA6, 0x0160}, {0xA8, 0x0161}, {0xB4, 0x017D},
                                    {0xB8, 0x017E}, {0xBC, 0x0152}, {0xBD, 0x0153}, {0xBE, 0x0178}};
const unsigned int kLatin9Count = sizeof(kLatin9) / sizeof(kLatin9[0]);

unsigned int latin9ToCodePoint(unsigned char b) {
  if (b < 0xA4 || b > 0xBE)
    return b;
  for (unsigned int i = 0; i < kLatin9Count; ++i) {
    if (kLatin9[i].byte == b)
      return kLatin9[i].codePoint;
  }
  return b;
}

// The Latin-9 byte of a code point, or -1 when it has none. Control codes
// have no printable form and count as none, except the line feed.
int codePointToLatin9(unsigned int cp) {
  if (cp == 0x0A)
    return 0x0A;
  if (cp < 0x20 || (cp >= 0x7F && cp < 0xA0))
    return -1;
  for (unsigned int i = 0; i < kLatin9Count; ++i) {
    if (kLatin9[i].codePoint == cp)
      return kLatin9[i].byte;
    if (kLatin9[i].byte == cp)
      return -1;  // replaced in Latin-9
  }
  return cp <= 0xFF ? static_cast<int>(cp) : -1;
}

void appendUtf8(unsigned int cp, std::string* out) {
  if (cp < 0x80) {
    out->push_back(static_cast<char>(cp));
  } else if (cp < 0x800) {
    out->push_back(static_cast<char>(0xC0 | (cp >> 6)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else if (cp < 0x10000) {
    out->push_back(static_cast<char>(0xE0 | (cp >> 12)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  } else {
    out->push_back(static_cast<char>(0xF0 | (cp >> 18)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
    out->push_back(static_cast<char>(0x80 | (cp & 0x3F)));
  }
}

// Reads one UTF-8 character at data[*pos..size); gives U+FFFD for a malformed,
// overlong or surrogate sequence and steps over one byte only then.
unsigned int nextUtf8(const unsigned char* data, unsigned int size, unsigned int* pos) {
  unsigned int i = *pos;
  unsigned char b = data[i];
  unsigned int need;
  unsigned int cp;
  unsigned int min;
  if (b < 0x80) {
    *pos = i + 1;
    return b;
  } else if ((b & 0xE0) == 0xC0) {
    need = 1, cp = b & 0x1F, min = 0x80;
  } else if ((b & 0xF0) == 0xE0) {
    need = 2, cp = b & 0x0F, min = 0x800;
  } else if ((b & 0xF8) == 0xF0) {
    need = 3, cp = b & 0x07, min = 0x10000;
  } else {
    *pos = i + 1;
    return kReplacement;
  }
  if (need > size - i - 1) {
    *pos = i + 1;
    return kReplacement;
  }
  for (unsigned int k = 1; k <= need; ++k) {
    unsigned char c = data[i + k];
    if ((c & 0xC0) != 0x80) {
      *pos = i + 1;
      return kReplacement;
    }
    cp = (cp << 6) | (c & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    *pos = i + 1;
    return kReplacement;
  }
  *pos = i + 1 + need;
  return cp;
}

bool isLineBreak(unsigned int cp) {
  return cp == 0x0A || cp == 0x0D || cp == 0x8A;
}
bool isControl(unsigned int cp) {
  return cp < 0x20 || (cp >= 0x7F && cp < 0xA0);
}

void appendShown(unsigned int cp, std::string* out) {
  if (isLineBreak(cp)) {
    out->push_back('\n');
  } else if (!isControl(cp)) {
    appendUtf8(cp, out);
  }
}

}  // namespace

std::string TTextCodec::decode(const unsigned char* data, unsigned int size) {
  std::string out;
  if (data == 0 || size == 0)
    return out;
  unsigned int pos = 0;
  if (data[0] == kUtf8Selector) {
    out.reserve(size - 1);
    pos = 1;
    while (pos < size)
      appendShown(nextUtf8(data, size, &pos), &out);
    return out;
  }
  if (data[0] == 0x10) {
    pos = size < 3 ? size : 3;
  } else if ((data[0] >= 0x01 && data[0] <= 0x0B) || (data[0] >= 0x11 && data[0] <= 0x1F)) {
    pos = 1;
  }
  out.reserve(size - pos);
  while (pos < size) {
    // Runs of printable ASCII, the bulk of most names, are copied as they are.
    unsigned int start = pos;
    while (pos < size && data[pos] >= 0x20 && data[pos] < 0x7F)
      ++pos;
    if (pos > start)
      out.append(reinterpret_cast<const char*>(data + start), pos - start);
    if (pos < size) {
      appendShown(latin9ToCodePoint(data[pos]), &out);
      ++pos;
    }
  }
  return out;
}

std::vector<unsigned char> TTextCodec::encode(const std::string& utf8) {
  const unsigned char* data = reinterpret_cast<const unsigned char*>(utf8.data());
  unsigned int size = static_cast<unsigned int>(utf8.size());
  std::vector<unsigned char> latin;
  latin.reserve(size);
  unsigned int pos = 0;
  bool fits = true;
  while (pos < size && fits) {
    int b = codePointToLatin9(nextUtf8(data, size, &pos));
    fits = b >= 0;
    if (fits)
      latin.push_back(static_cast<unsigned char>(b));
  }
  // A leading line feed (0x0A) would read as a table selector: UTF-8 then.
  if (fits && (latin.empty() || latin[0] != 0x0A))
    return latin;
  std::vector<unsigned char> raw;
  raw.reserve(size + 1);
  raw.push_back(kUtf8Selector);
  raw.insert(raw.end(), data, data + size);
  return raw;
}

}  // namespace Ostrel
