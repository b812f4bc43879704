// The two process-wide null objects, built at library load.
#include "module/null_objects.h"

namespace {
NullTestListener gNullListener;
NullMessageLog gNullLog;
}  // namespace

NullTestListener& nullTestListener() { return gNullListener; }
NullMessageLog& nullMessageLog() { return gNullLog; }
