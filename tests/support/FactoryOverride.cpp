#include "FactoryOverride.h"

#include <atomic>
#include <cassert>

namespace OstrelTest {

namespace {
FactoryOverride* s_active = nullptr;
unsigned short s_code = 0;
std::function<Ostrel::TCommand*()> s_make;
std::atomic<int> s_requests{0};
}  // namespace

FactoryOverride::FactoryOverride(unsigned short code, std::function<Ostrel::TCommand*()> make) {
  assert(!s_active);
  s_active = this;
  s_code = code;
  s_make = std::move(make);
  s_requests = 0;
  Ostrel::TCommand::setFactoryHook(&FactoryOverride::hook);
}

FactoryOverride::~FactoryOverride() {
  Ostrel::TCommand::setFactoryHook(nullptr);
  s_make = nullptr;
  s_active = nullptr;
}

int FactoryOverride::requests() const {
  return s_requests;
}

Ostrel::TCommand* FactoryOverride::hook(unsigned short code) {
  if (code != s_code)
    return Ostrel::TCommand::createDefault(code);
  ++s_requests;
  return s_make();
}

}  // namespace OstrelTest
