// Video size commands.
#include "OstrelGingaCommonCore.h"
