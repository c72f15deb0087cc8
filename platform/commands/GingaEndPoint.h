#ifndef OSTREL_GINGA_END_POINT_H
#define OSTREL_GINGA_END_POINT_H

namespace Ostrel {

class TCommand;

// Something that executes commands: the receiver, or a stand-in for it.
class GingaEndPoint {
 public:
  virtual ~GingaEndPoint();

  // Executes command. Returns non-zero on success; on success it may set
  // *response (when response is not null) to a new object that the caller owns.
  // The command stays the caller's, except an open data request, which the end
  // point takes over (see GingaServer).
  virtual int execute(TCommand* command, TCommand** response) = 0;
};

}  // namespace Ostrel

#endif  // OSTREL_GINGA_END_POINT_H
