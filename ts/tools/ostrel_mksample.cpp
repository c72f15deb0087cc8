// Writes the sample transport stream (see SampleStream.h) to a file.
#include <cstdio>
#include <cstring>
#include <vector>

#include "SampleStream.h"

int main(int argc, char** argv) {
  if (argc != 2 || std::strcmp(argv[1], "--help") == 0) {
    std::fprintf(stderr, "usage: ostrel-mksample OUTPUT.ts\n");
    return argc == 2 ? 0 : 2;
  }
  std::vector<unsigned char> stream = Ostrel::SampleStream::build();
  std::FILE* out = std::fopen(argv[1], "wb");
  if (!out) {
    std::perror(argv[1]);
    return 1;
  }
  bool ok = std::fwrite(stream.data(), 1, stream.size(), out) == stream.size();
  ok = std::fclose(out) == 0 && ok;
  if (!ok) {
    std::perror(argv[1]);
    return 1;
  }
  return 0;
}
