// Stand-in for the platform's file-system check until the Windows check is
// part of the module: it cannot start a check and cannot schedule one, so the
// driver reports status 6 for a partition and 4 for a scheduling request.
// The Windows check replaces this file with its own factory.
#include <memory>
#include <string>

#include "tools/recover_bad_sectors_operation.h"
#include "tools/tool_status.h"

namespace {

class UnavailableCheckFilesystemOperation : public CheckFilesystemOperation {
 public:
  using CheckFilesystemOperation::CheckFilesystemOperation;
  uint32_t run(DevicePlan&, int) override { return kToolStatusCannotStart; }
  void abort() override {}
  std::string getLog() override { return logText; }
  void clearLog() override { logText.clear(); }
  bool scheduleCheck(std::string) override { return false; }

 private:
  std::string logText;
};

}  // namespace

std::unique_ptr<CheckFilesystemOperation> makeCheckFilesystemOperation(Tool* owner) {
  return std::make_unique<UnavailableCheckFilesystemOperation>(owner);
}
