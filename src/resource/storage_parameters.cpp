// Which test reads which key of the "STORAGE" section.
#include "resource/storage_parameters.h"

std::vector<std::string> acceptedParameters(const ItemId& test) {
  if (test == ItemId(1, 1, 6)) return {kParameterSelfTestCode, kParameterSelfTestCount};
  if (test == ItemId(1, 1, 11)) {
    return {kParameterInitialSize, kParameterCentralSize, kParameterFinalSize, kParameterWholeDiskRead};
  }
  return {};
}
