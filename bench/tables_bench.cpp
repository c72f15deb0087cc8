// Parse time per section (PAT, a 288-byte PMT, SDT, NIT, TOT) and CRC
// throughput of the table library, each beside libdvbpsi decoding the same
// bytes (when it is installed).
//
// Our side: parse() of the section held in a buffer, CRC check included, and
// the table deleted. libdvbpsi's side: its only public way to decode, the
// section pushed as transport stream packets through a handle that stays
// attached; two copies of each section with different version numbers
// alternate so that every push yields a new table, which the callback
// deletes. Its CRC: dvbpsi_ValidPSISection over the same bytes.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "BenchSections.h"
#include "TCrc32.h"
#include "TDescriptorBuilder.h"
#include "TNITTable.h"
#include "TPATTable.h"
#include "TPMTBuilder.h"
#include "TPMTTable.h"
#include "TSDTTable.h"
#include "TTOTTable.h"
#include "golden_sections.h"

#ifdef OSTREL_BENCH_DVBPSI
#include "tables_dvbpsi.h"  // libdvbpsi, included once
#endif

using namespace Ostrel;
using Bytes = std::vector<unsigned char>;
using OstrelTest::pmt288;
using OstrelTest::withVersion;

namespace {

template <size_t N>
Bytes golden(const unsigned char (&s)[N]) {
  return Bytes(s, s + N);
}

template <class T>
void parseLoop(benchmark::State& state, Bytes section) {
  for (auto _ : state) {
    T* t =
        T::parse(section.data(), static_cast<unsigned int>(section.size()), 1, 1, nullptr, nullptr);
    benchmark::DoNotOptimize(t);
    if (t == nullptr) {
      state.SkipWithError("section did not parse");
      break;
    }
    delete t;
  }
  state.SetLabel(std::to_string(section.size()) + " bytes");
}

void BM_Ours_Pat(benchmark::State& s) {
  parseLoop<TPATTable>(s, golden(OstrelGolden::kPat));
}
void BM_Ours_Pmt288(benchmark::State& s) {
  parseLoop<TPMTTable>(s, pmt288());
}
void BM_Ours_Sdt(benchmark::State& s) {
  parseLoop<TSDTTable>(s, golden(OstrelGolden::kSdt));
}
void BM_Ours_Nit(benchmark::State& s) {
  parseLoop<TNITTable>(s, golden(OstrelGolden::kNit));
}
void BM_Ours_Tot(benchmark::State& s) {
  parseLoop<TTOTTable>(s, golden(OstrelGolden::kTot));
}
BENCHMARK(BM_Ours_Pat);
BENCHMARK(BM_Ours_Pmt288);
BENCHMARK(BM_Ours_Sdt);
BENCHMARK(BM_Ours_Nit);
BENCHMARK(BM_Ours_Tot);

void BM_Ours_Crc(benchmark::State& state) {
  Bytes data(static_cast<size_t>(state.range(0)), 0x5A);
  for (size_t i = 0; i < data.size(); ++i)
    data[i] = static_cast<unsigned char>(i * 7);
  for (auto _ : state) {
    benchmark::DoNotOptimize(TCrc32::compute(data.data(), static_cast<unsigned int>(data.size())));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_Ours_Crc)->Arg(188)->Arg(1024)->Arg(4096);

#ifdef OSTREL_BENCH_DVBPSI

void dvbpsiLoop(benchmark::State& state, const Bytes& section, OstrelDvbpsi::Decoder::Table table,
                bool versioned) {
  unsigned short program = static_cast<unsigned short>((section[3] << 8) | section[4]);
  OstrelDvbpsi::Decoder decoder(table, program, false);
  unsigned int counter = 0;
  Bytes variants[2];
  for (int v = 0; v < 2; ++v) {
    variants[v] =
        OstrelDvbpsi::packetize(versioned ? withVersion(section, v) : section, 0x0100, &counter);
  }
  const size_t packets = variants[0].size() / OstrelDvbpsi::kPacketSize;
  counter = 0;
  int64_t pushed = 0;
  for (auto _ : state) {
    Bytes& p = variants[pushed & 1];
    for (size_t k = 0; k < packets; ++k) {  // continuity counters carry on
      p[k * OstrelDvbpsi::kPacketSize + 3] = static_cast<unsigned char>(0x10 | (counter++ & 0x0F));
    }
    decoder.push(p);
    ++pushed;
  }
  if (decoder.tables() != pushed)
    state.SkipWithError("libdvbpsi missed tables");
  state.SetLabel(std::to_string(section.size()) + " bytes");
}

void BM_Dvbpsi_Pat(benchmark::State& s) {
  dvbpsiLoop(s, golden(OstrelGolden::kPat), OstrelDvbpsi::Decoder::kPat, true);
}
void BM_Dvbpsi_Pmt288(benchmark::State& s) {
  dvbpsiLoop(s, pmt288(), OstrelDvbpsi::Decoder::kPmt, true);
}
void BM_Dvbpsi_Sdt(benchmark::State& s) {
  dvbpsiLoop(s, golden(OstrelGolden::kSdt), OstrelDvbpsi::Decoder::kSi, true);
}
void BM_Dvbpsi_Nit(benchmark::State& s) {
  dvbpsiLoop(s, golden(OstrelGolden::kNit), OstrelDvbpsi::Decoder::kSi, true);
}
void BM_Dvbpsi_Tot(benchmark::State& s) {
  // A TOT has no version: every section is a table of its own.
  dvbpsiLoop(s, golden(OstrelGolden::kTot), OstrelDvbpsi::Decoder::kSi, false);
}
BENCHMARK(BM_Dvbpsi_Pat);
BENCHMARK(BM_Dvbpsi_Pmt288);
BENCHMARK(BM_Dvbpsi_Sdt);
BENCHMARK(BM_Dvbpsi_Nit);
BENCHMARK(BM_Dvbpsi_Tot);

void BM_Dvbpsi_Crc(benchmark::State& state) {
  // A long-form section of the requested size; libdvbpsi checks its CRC
  // over the whole section, as ours does.
  size_t size = static_cast<size_t>(state.range(0));
  dvbpsi_psi_section_t* section = dvbpsi_NewPSISection(static_cast<int>(size));
  for (size_t i = 0; i < size; ++i)
    section->p_data[i] = static_cast<unsigned char>(i * 7);
  section->p_data[0] = 0x80;
  section->p_data[1] = static_cast<unsigned char>(0xB0 | ((size - 3) >> 8));
  section->p_data[2] = static_cast<unsigned char>((size - 3) & 0xFF);
  section->b_syntax_indicator = true;
  section->i_length = static_cast<uint16_t>(size - 3);
  section->p_payload_start = section->p_data + 8;
  section->p_payload_end = section->p_data + size - 4;
  for (auto _ : state) {
    benchmark::DoNotOptimize(dvbpsi_ValidPSISection(section));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
  dvbpsi_DeletePSISections(section);
}
BENCHMARK(BM_Dvbpsi_Crc)->Arg(188)->Arg(1024)->Arg(4096);

#endif  // OSTREL_BENCH_DVBPSI

}  // namespace

BENCHMARK_MAIN();
