#ifndef OSTREL_TESTS_COUNTED_TABLE_H
#define OSTREL_TESTS_COUNTED_TABLE_H

#include <atomic>

#include "TISDBTTable.h"

namespace OstrelTest {

// A table that counts its destruction and poisons itself on the way out, so
// that a use after destruction shows in isAlive() (and under AddressSanitizer).
class CountedTable : public Ostrel::TISDBTTable {
 public:
  static constexpr unsigned int kAlive = 0xA11CE5ED;
  static constexpr unsigned int kDead = 0xDEADDEAD;

  explicit CountedTable(unsigned int type, std::atomic<int>* destroyed = nullptr)
      : Ostrel::TISDBTTable(type), m_destroyed(destroyed) {}
  ~CountedTable() override {
    m_magic = kDead;
    if (m_destroyed)
      ++*m_destroyed;
  }

  bool isAlive() const { return m_magic == kAlive; }

 private:
  volatile unsigned int m_magic = kAlive;
  std::atomic<int>* m_destroyed;
};

}  // namespace OstrelTest

#endif
