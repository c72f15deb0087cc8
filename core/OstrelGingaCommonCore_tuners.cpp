// The tuner list.
#include "OstrelGingaCommonCore.h"
