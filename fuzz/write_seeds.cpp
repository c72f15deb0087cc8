// Writes the golden sections as seed files of the fuzz corpora:
//   write_seeds <directory>
// Each section twice, behind the fuzz targets' flag byte: <name>-crc (CRC
// rewritten by the target) and <name>-raw (as is).
#include <cstdio>
#include <string>

#include "golden_sections.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <directory>\n", argv[0]);
    return 2;
  }
  for (const OstrelGolden::Section& s : OstrelGolden::kAll) {
    for (unsigned char flag = 0; flag < 2; ++flag) {
      std::string path = std::string(argv[1]) + "/" + s.name + (flag ? "-crc" : "-raw");
      std::FILE* f = std::fopen(path.c_str(), "wb");
      bool ok = f && std::fputc(flag, f) != EOF && std::fwrite(s.data, 1, s.size, f) == s.size;
      if (f && std::fclose(f) != 0)
        ok = false;
      if (!ok) {
        std::perror(path.c_str());
        return 1;
      }
    }
  }
  return 0;
}
