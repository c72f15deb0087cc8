// Section data delivered by the server.
#include "OstrelGingaCommonCore.h"

namespace Ostrel {

int OstrelGingaCommonCore::injectData(int, short, short, short, void*, unsigned char*,
                                      unsigned int) {
  return 0;
}

}  // namespace Ostrel
