// The operations that the recover-bad-sectors tool drives: their common base,
// the plans the driver hands them, and the base of the file-system check.
// The driver itself is RecoverBadSectors; the scan and repair walks are
// ScanTool and ScanAndFixTool; the Windows file-system check is built on
// CheckFilesystemOperation.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class StorageComponent;
class Tool;
class ToolEventSink;

// One partition of a device as the host listed it for "filesystem".
struct PartitionPlan {
  std::string name;
  std::string mountPath;    // what the file-system check is given
  std::string secondField;  // the host's; stored and never used
  bool isSystemPartition = false;
};

// One device of a run, in the order of the tool's devices.
struct DevicePlan {
  std::string name;  // the name of the device's description
  std::string id;    // SystemComponent::getId
  std::vector<PartitionPlan> partitions;  // empty selects the whole-device run
};

// An operation lives as long as its tool and is reused from run to run. The
// driver sets the device and the listener before each run; the operation
// stores Progress into its owner and reads the owner's abort flag and
// system-event byte.
class RecoverBadSectorsOperation {
 public:
  RecoverBadSectorsOperation(Tool* owner, std::string name);
  virtual ~RecoverBadSectorsOperation();
  RecoverBadSectorsOperation(const RecoverBadSectorsOperation&) = delete;
  RecoverBadSectorsOperation& operator=(const RecoverBadSectorsOperation&) = delete;

  // Returns a tool status (tool_status.h).
  virtual uint32_t run(DevicePlan& plan, int partitionIndex) = 0;
  virtual void abort() = 0;
  virtual std::string getLog() = 0;
  virtual void clearLog() = 0;
  // Four counters: sectors read, bad sectors found, fixed, not fixed. Null for
  // an operation that counts no sectors.
  virtual const uint64_t* getCounters() { return nullptr; }
  // Bad LBAs in order of finding; null for an operation that lists none.
  virtual const std::vector<uint64_t>* getBadSectors() { return nullptr; }
  virtual void setDevice(StorageComponent* component) { device = component; }
  virtual std::string getStatusText() { return statusText; }

  void setListener(ToolEventSink* sink) { listener = sink; }
  const std::string& getName() const { return name; }
  Tool* getOwner() const { return owner; }

 protected:
  // Stores Progress := [percentText] in the owner and fires OnProgress.
  void reportProgress(const std::string& percentText);
  // Whether the owner's abort flag is there and reports set.
  bool ownerAbortRequested() const;
  // The owner's system-event byte, 0 when it has none.
  uint8_t ownerSystemEvents() const;

  ToolEventSink* listener = nullptr;
  std::string name;  // reported in OperationInit
  std::string statusText;  // no operation of this module fills it
  StorageComponent* device = nullptr;
  uint32_t markWord = 0;  // set to 1 by the scan walk, not otherwise used
  Tool* owner;
  uint8_t aborted = 0;
};

// The file-system check: a RecoverBadSectorsOperation that can also arrange
// a check of a volume for the next start of the operating system, which is
// what the driver asks for on the system partition.
class CheckFilesystemOperation : public RecoverBadSectorsOperation {
 public:
  explicit CheckFilesystemOperation(Tool* owner);

  // True when the check was scheduled.
  virtual bool scheduleCheck(std::string mountPath) = 0;
};

// The platform's file-system check, given the tool as owner. Defined by the
// platform's implementation of the check.
std::unique_ptr<CheckFilesystemOperation> makeCheckFilesystemOperation(Tool* owner);
