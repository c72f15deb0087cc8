// The video size commands and the tuner list: the cost the core adds around
// one synchronous command (factory, dispatch, answer read and deleted), against
// a server that answers at once, at one and two calling threads.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "TGetTunerListResponse.h"
#include "TVideoCommand.h"

using namespace Ostrel;

namespace {

// Answers at once: video commands with an object of their own class, the
// tuner list with s_iTuners tuners. Records nothing.
int s_iTuners = 0;

OstrelTest::RecordingServer* server() {
  static OstrelTest::RecordingServer* s_server = [] {
    auto* made = new OstrelTest::RecordingServer(true);
    for (unsigned short code = 0x400; code <= 0x404; ++code) {
      made->setAnswer(code, [code] {
        auto* answer = static_cast<TVideoCommand*>(TCommand::createDefault(code));
        answer->setSw(1920);
        answer->setSh(1080);
        return answer;
      });
    }
    made->setAnswer(0x500, [] {
      auto* list = new TGetTunerListResponse();
      for (int i = 0; i < s_iTuners; ++i)
        list->addTuner(i, 1);
      return list;
    });
    OstrelGingaCommonCore::getInstance()->setServer(made);
    return made;
  }();
  return s_server;
}

void BM_GetVideoSize(benchmark::State& state) {
  server();
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  short sx, sy, dx, dy, error;
  unsigned short sw, sh, dw, dh;
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        core->getVideoSize(1, 0, &sx, &sy, &sw, &sh, &dx, &dy, &dw, &dh, &error));
  }
}
BENCHMARK(BM_GetVideoSize)->Threads(1)->Threads(2)->UseRealTime();

void BM_SetVideoSize(benchmark::State& state) {
  server();
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  short error;
  for (auto _ : state) {
    benchmark::DoNotOptimize(core->setVideoSize(1, 0, 0, 0, 1920, 1080, 0, 0, 960, 540, &error));
  }
}
BENCHMARK(BM_SetVideoSize)->Threads(1)->Threads(2)->UseRealTime();

void BM_CheckVideoSize(benchmark::State& state) {
  server();
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  short sx, sy, dx, dy, error;
  unsigned short sw, sh, dw, dh;
  for (auto _ : state) {
    benchmark::DoNotOptimize(core->checkVideoSize(1, 0, 0, 0, 1920, 1080, 0, 0, 960, 540, &sx, &sy,
                                                  &sw, &sh, &dx, &dy, &dw, &dh, &error));
  }
}
BENCHMARK(BM_CheckVideoSize)->Threads(1)->Threads(2)->UseRealTime();

// The server builds its answer inside the timed loop too; the copy is the
// core's part (up to 256 entries, two arrays from malloc, freed here).
void BM_GetTunerList(benchmark::State& state) {
  server();
  s_iTuners = static_cast<int>(state.range(0));
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  for (auto _ : state) {
    int* ids = nullptr;
    unsigned char* types = nullptr;
    short error;
    benchmark::DoNotOptimize(core->getTunerList(&ids, &types, &error));
    free(ids);
    free(types);
  }
}
BENCHMARK(BM_GetTunerList)->Arg(0)->Arg(3)->Arg(256);

}  // namespace

BENCHMARK_MAIN();
