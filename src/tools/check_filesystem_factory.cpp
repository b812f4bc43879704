// The platform's file-system check for the recover tool: on Windows, and on
// the simulated PC that serves the same calls, WinCheckFilesystemTool.
#include <memory>

#include "tools/recover_bad_sectors_operation.h"
#include "tools/win_check_filesystem_tool.h"

std::unique_ptr<CheckFilesystemOperation> makeCheckFilesystemOperation(Tool* owner) {
  return std::make_unique<WinCheckFilesystemTool>(owner);
}
