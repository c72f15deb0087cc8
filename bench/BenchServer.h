// A server and a notification callback for benchmarks of the core's request
// path, where neither may cost anything worth measuring.
#ifndef OSTREL_BENCH_SERVER_H
#define OSTREL_BENCH_SERVER_H

#include "GingaServer.h"
#include "TISDBTTable.h"

namespace OstrelBench {

// Answers every command at once; open requests are closed right away so that
// they do not pile up over millions of iterations.
class NullServer : public Ostrel::GingaServer {
 public:
  int execute(Ostrel::TCommand*, Ostrel::TCommand**) override { return 1; }
};

// Counts the notifications in the long that the user data points to, if any.
inline int countingCallback(unsigned int, unsigned char, void* userData, Ostrel::TISDBTTable*) {
  if (userData)
    ++*static_cast<long*>(userData);
  return 1;
}

}  // namespace OstrelBench

#endif  // OSTREL_BENCH_SERVER_H
