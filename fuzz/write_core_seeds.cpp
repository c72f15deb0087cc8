// Writes seed files for the core's fuzz targets:
//   write_core_seeds inject_data <directory>   request, inject, ask the cache
//                                               again, for each golden section
//   write_core_seeds ts_demux <directory>      runs of the sample stream's
//                                               table packets, as the target
//                                               reads them
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "SampleStream.h"
#include "TsPacket.h"
#include "golden_sections.h"

namespace {

typedef std::vector<unsigned char> Bytes;

bool writeFile(const std::string& path, const Bytes& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  bool ok = f && std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  if (f && std::fclose(f) != 0)
    ok = false;
  if (!ok)
    std::perror(path.c_str());
  return ok;
}

void put16(Bytes* b, unsigned short v) {
  b->push_back(static_cast<unsigned char>(v >> 8));
  b->push_back(static_cast<unsigned char>(v));
}

// The PID and table id a golden section travels on.
unsigned short pidOf(const unsigned char* s) {
  switch (s[0]) {
    case 0x00:
      return 0x0000;
    case 0x02:
      return 0x0100;
    case 0x40:
      return 0x0010;
    case 0x42:
      return 0x0011;
    default:
      return 0x0014;  // TDT, TOT
  }
}

// The steps of fuzz_inject_data: operation, then its operands. PIDs and table
// ids are given raw (flag 0x80 on the selector byte).
void request(Bytes* b, unsigned char op, signed char mode, unsigned short pid,
             unsigned char tableId) {
  b->push_back(op);
  b->push_back(static_cast<unsigned char>(mode));
  b->push_back(1);  // tuner 1
  b->push_back(0x80);
  put16(b, pid);
  b->push_back(0x80);
  put16(b, tableId);
  put16(b, 0);      // extension
  b->push_back(0);  // user data, release, error code all given
}

void inject(Bytes* b, unsigned short pid, const unsigned char* data, unsigned int size) {
  b->push_back(0);
  b->push_back(1);
  b->push_back(0x80);
  put16(b, pid);
  b->push_back(0x80);
  put16(b, data[0]);
  put16(b, 0);
  b->push_back(0);  // bytes as they are
  put16(b, static_cast<unsigned short>(size));
  b->insert(b->end(), data, data + size);
}

bool injectSeeds(const std::string& dir) {
  for (const OstrelGolden::Section& s : OstrelGolden::kAll) {
    Bytes b;
    unsigned short pid = pidOf(s.data);
    request(&b, 3, 2, pid, s.data[0]);  // followed by the server
    inject(&b, pid, s.data, s.size);
    request(&b, 3, 0, pid, s.data[0]);  // answered from the cache
    request(&b, 5, 1, pid, s.data[0]);  // synchronous, cache first
    if (!writeFile(dir + "/" + s.name, b))
      return false;
  }
  return true;
}

bool isTablePid(unsigned short pid) {
  return pid == 0x0000 || pid == 0x0010 || pid == 0x0011 || pid == 0x0014 || pid == 0x0100 ||
         pid == 0x0110 || pid == 0x1FC8;
}

bool demuxSeeds(const std::string& dir) {
  Bytes stream = Ostrel::SampleStream::build();
  Bytes tables;
  for (size_t at = 0; at + Ostrel::TsPacket::kSize <= stream.size();
       at += Ostrel::TsPacket::kSize) {
    if (isTablePid(Ostrel::TsPacket::getPid(&stream[at])))
      tables.insert(tables.end(), &stream[at], &stream[at] + Ostrel::TsPacket::kSize);
  }
  const size_t run = 20 * Ostrel::TsPacket::kSize;
  for (int i = 0; i < 8 && (i + 1) * run <= tables.size(); ++i) {
    // Straight to the demux at 188, and through the packetizer.
    for (unsigned char flag = 0; flag < 2; ++flag) {
      Bytes b(1, flag);
      b.insert(b.end(), tables.begin() + i * run, tables.begin() + (i + 1) * run);
      if (!writeFile(dir + "/sample-" + std::to_string(i) + "-" + std::to_string(flag), b))
        return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s inject_data|ts_demux <directory>\n", argv[0]);
    return 2;
  }
  std::string target = argv[1];
  if (target == "inject_data")
    return injectSeeds(argv[2]) ? 0 : 1;
  if (target == "ts_demux")
    return demuxSeeds(argv[2]) ? 0 : 1;
  std::fprintf(stderr, "%s: no seeds for %s\n", argv[0], argv[1]);
  return 2;
}
