#ifndef OSTREL_GINGA_DATA_DESTINATION_H
#define OSTREL_GINGA_DATA_DESTINATION_H

namespace Ostrel {

// Where a server delivers the section data of a tuner, on its own thread.
class GingaDataDestination {
 public:
  virtual ~GingaDataDestination();

  // One complete section under its request key; data stays the caller's.
  virtual int injectData(int tunerId, short pid, short tableId, short tableIdExt, void* context,
                         unsigned char* data, unsigned int size) = 0;
};

}  // namespace Ostrel

#endif  // OSTREL_GINGA_DATA_DESTINATION_H
