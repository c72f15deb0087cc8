#ifndef OSTREL_T_GET_TUNER_LIST_RESPONSE_H
#define OSTREL_T_GET_TUNER_LIST_RESPONSE_H

#include <utility>
#include <vector>

#include "TCommand.h"

namespace Ostrel {

// The answer to TGetTunerListCommand: the receiver's tuners, each an id and a
// type, addressed by an 8-bit index in the order the server added them.
class TGetTunerListResponse : public TCommand {
 public:
  TGetTunerListResponse();
  virtual ~TGetTunerListResponse();

  // For servers: appends a tuner.
  void addTuner(int id, unsigned char type);

  // How many tuners were added. Only the first 256 can be addressed.
  unsigned int getTunerCounter() const;

  // Write the id or type of the tuner at index; 0, and nothing written, when
  // there is no such tuner.
  int getTunerId(unsigned char index, int* id) const;
  int getTunerType(unsigned char index, unsigned char* type) const;

 private:
  std::vector<std::pair<int, unsigned char> > m_vecTuners;
};

}  // namespace Ostrel

#endif  // OSTREL_T_GET_TUNER_LIST_RESPONSE_H
