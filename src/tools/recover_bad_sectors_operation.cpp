// The common base of the recover tool's operations: progress into the owner
// and the owner's abort and system-event state.
#include "tools/recover_bad_sectors_operation.h"

#include <utility>

#include "module_storage/tool.h"
#include "tools/tool_events.h"

RecoverBadSectorsOperation::RecoverBadSectorsOperation(Tool* ownerTool, std::string operationName)
    : name(std::move(operationName)), owner(ownerTool) {}

RecoverBadSectorsOperation::~RecoverBadSectorsOperation() = default;

void RecoverBadSectorsOperation::reportProgress(const std::string& percentText) {
  if (owner == nullptr) return;
  owner->setValues("Progress", {percentText});
  fireToolEvent(owner, listener, "OnProgress");
}

bool RecoverBadSectorsOperation::ownerAbortRequested() const {
  return owner != nullptr && owner->abortFlag != nullptr && owner->abortFlag->isSet() != 0;
}

uint8_t RecoverBadSectorsOperation::ownerSystemEvents() const {
  return owner != nullptr && owner->systemEvents != nullptr ? *owner->systemEvents : 0;
}

CheckFilesystemOperation::CheckFilesystemOperation(Tool* ownerTool)
    : RecoverBadSectorsOperation(ownerTool, "|CHECK_FILESYSTEM_TOOL") {}
