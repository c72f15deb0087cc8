#ifndef OSTREL_TESTS_FACTORY_OVERRIDE_H
#define OSTREL_TESTS_FACTORY_OVERRIDE_H

#include <functional>

#include "TCommand.h"

namespace OstrelTest {

// While it lives, the command factory gives make(code) for one code and the
// built-in object for every other. One at a time.
class FactoryOverride {
 public:
  FactoryOverride(unsigned short code, std::function<Ostrel::TCommand*()> make);
  ~FactoryOverride();
  FactoryOverride(const FactoryOverride&) = delete;
  FactoryOverride& operator=(const FactoryOverride&) = delete;

  // How many times the overridden code was asked for.
  int requests() const;

 private:
  static Ostrel::TCommand* hook(unsigned short code);
};

}  // namespace OstrelTest

#endif
