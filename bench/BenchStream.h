// The large stream file of the simulator's benchmarks, and the two ways they
// go through it: a plain read, and the tuner's demultiplexing path.
#ifndef OSTREL_BENCH_STREAM_H
#define OSTREL_BENCH_STREAM_H

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "SampleStream.h"
#include "SectionDemux.h"
#include "SectionSink.h"
#include "TransportStreamSource.h"
#include "TsPacketizer.h"

namespace OstrelBench {

const size_t kReadChunk = 256 * 1024;

// The sample stream 200 times over (about 200 MB), written on first use to a
// file of this process's own and removed at exit; or the file named by
// OSTREL_BENCH_TS, left alone.
inline const std::string& largeStreamFile() {
  struct File {
    std::string path;
    bool written = false;
    ~File() {
      if (written)
        std::remove(path.c_str());
    }
  };
  static File file;
  if (!file.path.empty())
    return file.path;
  if (const char* given = std::getenv("OSTREL_BENCH_TS")) {
    file.path = given;
    return file.path;
  }
  file.path = "/tmp/ostrel_bench_" + std::to_string(getpid()) + ".ts";
  std::vector<unsigned char> sample = Ostrel::SampleStream::build();
  if (std::FILE* out = std::fopen(file.path.c_str(), "wb")) {
    for (int i = 0; i < 200; ++i)
      std::fwrite(sample.data(), 1, sample.size(), out);
    std::fclose(out);
    file.written = true;
  }
  return file.path;
}

// Reads the whole file in kReadChunk pieces; its size, or -1 when it cannot
// be opened.
inline long long plainRead(const std::string& path, std::vector<unsigned char>* buffer) {
  buffer->resize(kReadChunk);
  int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0)
    return -1;
  long long bytes = 0;
  ssize_t got = 0;
  unsigned char sum = 0;
  while ((got = read(fd, buffer->data(), buffer->size())) > 0) {
    sum ^= (*buffer)[static_cast<size_t>(got) - 1];
    bytes += got;
  }
  benchmark::DoNotOptimize(sum);
  close(fd);
  return bytes;
}

struct CountingSink : Ostrel::SectionSink {
  uint64_t sections = 0;
  void onSection(int, unsigned short, const unsigned char*, unsigned int) override { ++sections; }
};

// The tuner's path without pacing: reads the file, cuts it into packets,
// reassembles and checks the sections of the service-information PIDs and the
// PMTs. False, with *error, when the file cannot be opened.
inline bool demuxWhole(const std::string& path, uint64_t* bytes, uint64_t* sections,
                       std::string* error) {
  using namespace Ostrel;
  std::unique_ptr<TransportStreamSource> source = TransportStreamSource::openFile(path, error);
  if (!source)
    return false;
  source->setLoop(false);
  CountingSink sink;
  SectionDemux demux(0, &sink);
  for (unsigned short pid = 0; pid <= 0x1F; ++pid)
    demux.enablePid(pid);
  for (unsigned short pid : {SampleStream::kHdPmtPid, SampleStream::kDataPmtPid,
                             SampleStream::kOneSegPmtPid, SampleStream::kMissingPmtPid}) {
    demux.enablePid(pid);
  }
  TsPacketizer packetizer;
  while (source->read(&packetizer, kReadChunk, 0) == TransportStreamSource::kData)
    packetizer.process(&demux);
  packetizer.finish(&demux);
  *bytes += source->getSize();
  *sections += sink.sections;
  return true;
}

}  // namespace OstrelBench

#endif  // OSTREL_BENCH_STREAM_H
