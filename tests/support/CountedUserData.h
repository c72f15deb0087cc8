#ifndef OSTREL_TESTS_COUNTED_USER_DATA_H
#define OSTREL_TESTS_COUNTED_USER_DATA_H

#include <atomic>

namespace OstrelTest {

// User data that counts its releases; pass &CountedUserData::release.
struct CountedUserData {
  std::atomic<int> releases{0};

  static void release(void* userData) { ++static_cast<CountedUserData*>(userData)->releases; }
};

}  // namespace OstrelTest

#endif
