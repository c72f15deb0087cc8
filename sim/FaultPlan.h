#ifndef OSTREL_SIM_FAULT_PLAN_H
#define OSTREL_SIM_FAULT_PLAN_H

#include <cstdint>
#include <set>

namespace Ostrel {

// Faults that the simulator injects on the way from its section filters to
// the server engine, to exercise a middleware's error paths. A dropped
// section is lost as on a bad reception: a later repetition may still pass. A
// corrupted one reaches the engine with a damaged CRC_32, which the engine
// counts and never delivers. The choices come from a generator seeded with seed, so a run repeats.
struct FaultPlan {
  double dropShare = 0.0;               // 0..1: share of sections not delivered
  double corruptShare = 0.0;            // 0..1: share of sections delivered with a bad CRC
  unsigned int delayMs = 0;             // every delivery this much later
  std::set<unsigned short> hiddenPids;  // never delivered, not even to sync requests
  uint32_t seed = 1;

  bool isEmpty() const {
    return dropShare <= 0.0 && corruptShare <= 0.0 && delayMs == 0 && hiddenPids.empty();
  }
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_FAULT_PLAN_H
