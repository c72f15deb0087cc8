// Tables are parsed on the server's delivery thread: the parsers share nothing
// but the CRC's tables, built on first use. Run under ThreadSanitizer, this
// test is the one that would see a race there.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "TNITTable.h"
#include "TPMTTable.h"
#include "golden_sections.h"

using namespace Ostrel;

TEST(TablesThreadsTest, ParsersRunOnSeveralThreadsAtOnceFromTheFirstCall) {
  std::atomic<bool> go(false);
  std::atomic<int> parsed(0);
  auto work = [&go, &parsed] {
    std::vector<unsigned char> pmt(OstrelGolden::kPmt,
                                   OstrelGolden::kPmt + sizeof(OstrelGolden::kPmt));
    std::vector<unsigned char> nit(OstrelGolden::kNit,
                                   OstrelGolden::kNit + sizeof(OstrelGolden::kNit));
    while (!go.load())
      std::this_thread::yield();
    for (int i = 0; i < 200; ++i) {
      std::unique_ptr<TPMTTable> p(TPMTTable::parse(
          pmt.data(), static_cast<unsigned int>(pmt.size()), 1, 1, nullptr, nullptr));
      std::unique_ptr<TNITTable> n(TNITTable::parse(
          nit.data(), static_cast<unsigned int>(nit.size()), 1, 1, nullptr, nullptr));
      if (p && n && p->getStreamCount() == 4 && n->getNetworkName() == "Ostrel TV")
        ++parsed;
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back(work);
  go = true;  // every thread's first parse races for the CRC tables
  for (auto& t : threads)
    t.join();
  EXPECT_EQ(parsed.load(), 4 * 200);
}
