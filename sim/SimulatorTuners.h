#ifndef OSTREL_SIM_SIMULATOR_TUNERS_H
#define OSTREL_SIM_SIMULATOR_TUNERS_H

#include <memory>

#include "ReceiverSimulator.h"

namespace Ostrel {

class TransportStreamSource;
class TunerInput;

// The simulator's tuners as its own programs, tests and benchmarks use them:
// a tuner on any source, and a tuner's reader with its progress. Not
// installed: these types are the simulator's internals.
struct SimulatorTuners {
  // Adds a tuner that plays source (null: fed by hand). Returns its id.
  static int add(ReceiverSimulator* sim, std::unique_ptr<TransportStreamSource> source,
                 unsigned char type = ReceiverSimulator::kTerrestrialTuner);
  // The tuner with this id, or null. Owned by the simulator.
  static TunerInput* get(const ReceiverSimulator& sim, int tunerId);
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SIMULATOR_TUNERS_H
