// The recover tool's driver: the call record in and out, the events in the
// order of a run, the question before the system partition, and the device
// filter. The walks and the check are the operations' own.
#include "tools/recover_bad_sectors.h"

#include <stdexcept>
#include <utility>

#include "components/storage_component.h"
#include "module_storage/test.h"
#include "tools/scan_tool.h"
#include "tools/tool_events.h"
#include "tools/tool_status.h"

namespace {

const char kFilesystemWord[] = "filesystem";
const char kScanWord[] = "scan";
const char kRepairWord[] = "repair";
const char kFilterWord[] = "filterDevices";

// The user's answers to the question before the system partition.
constexpr uint32_t kAnswerSchedule = 1;
constexpr uint32_t kAnswerDoNotSchedule = 2;
// Passed through to the host's question unchanged.
constexpr uint32_t kQuestionNumberA = 0;
constexpr uint32_t kQuestionNumberB = 1;

constexpr size_t kPartitionTableStride = 4;  // name, secondField, mountPath, "T"/"F"

// Gives a device's volumes back when it goes out of scope: after a repair,
// however the repair ended (a host handler that throws included). Volumes
// that could not be taken are passed over by the remount itself.
class VolumesBack {
 public:
  explicit VolumesBack(StorageComponent* component) : component_(component) {}
  ~VolumesBack() {
    if (component_ != nullptr) component_->remountVolumes();
  }
  VolumesBack(const VolumesBack&) = delete;
  VolumesBack& operator=(const VolumesBack&) = delete;

 private:
  StorageComponent* component_;
};

}  // namespace

RecoverBadSectors::RecoverBadSectors(const ItemId& itemId) : Tool(itemId), log(std::make_unique<RecoverLog>()) {
  operations[kFilesystemWord] = makeCheckFilesystemOperation(this);
  operations[kScanWord] = std::make_unique<ScanTool>(this);
  operations[kRepairWord] = std::make_unique<ScanAndFixTool>(this);
}

RecoverBadSectors::~RecoverBadSectors() = default;

RecoverBadSectorsOperation* RecoverBadSectors::getOperation(const std::string& word) const {
  auto it = operations.find(word);
  return it == operations.end() ? nullptr : it->second.get();
}

void RecoverBadSectors::replaceOperation(const std::string& word,
                                         std::unique_ptr<RecoverBadSectorsOperation> operation) {
  auto it = operations.find(word);
  if (it != operations.end() && operation != nullptr) it->second = std::move(operation);
}

const char RecoverBadSectors::kUnknownOperationKey[] = "UNKNOWN_OPERATION";

void RecoverBadSectors::fire(const std::string& eventName) { fireToolEvent(this, listener, eventName); }

void RecoverBadSectors::execute() {
  const std::vector<std::string>* operation = getValues("Operation");
  operationName = operation != nullptr && !operation->empty() ? operation->front() : std::string();
  if (abortFlag != nullptr) abortFlag->set(false);

  if (operationName == kFilterWord) {
    filterDevices();
    return;
  }

  auto chosen = operations.find(operationName);
  if (chosen == operations.end() || chosen->second == nullptr) {
    // A host that names no operation gets the reason in the call record, not
    // an exception across the module's boundary: nothing runs, nothing fires.
    setValues("Message", {kUnknownOperationKey, operationName});
    return;
  }
  currentOperation = chosen->second.get();
  scratchValues.clear();

  buildPlans();
  if (listener == nullptr) return;

  fire("OnRecoverInit");
  setValues("OperationInit", {currentOperation->getName()});
  fire("OnOperationInit");

  for (size_t i = 0; i < devices.size() && i < plans.size(); ++i) {
    DevicePlan& plan = plans[i];
    auto* component = dynamic_cast<StorageComponent*>(devices[i]);
    // The guard text and whether anything ran are kept per device, not per
    // partition: a partition's guard text can reach a later partition's
    // Message, and a run earlier on the device silences a later guard.
    std::string guardText;
    bool ran = false;
    setValues("Message", {});
    currentOperation->setDevice(component);
    if (!plan.partitions.empty()) {
      runPartitions(plan, guardText, ran);
    } else {
      runWholeDevice(plan, component, guardText, ran);
    }
  }

  fire("OnRecoverFinish");
}

void RecoverBadSectors::buildPlans() {
  plans.clear();
  for (SystemComponent* device : devices) {
    DevicePlan plan;
    if (device != nullptr) {
      plan.id = device->getId();
      plan.name = device->getDescription().name;
    }
    if (operationName == kFilesystemWord) {
      const std::vector<std::string>* table = getValues("partition_table" + plan.id);
      const size_t length = table != nullptr ? table->size() : 0;
      for (size_t p = 0; p < length; p += kPartitionTableStride) {
        if (p + kPartitionTableStride > length) throw std::out_of_range("invalid vector<T> subscript");
        PartitionPlan partition;
        partition.name = (*table)[p];
        partition.secondField = (*table)[p + 1];
        partition.mountPath = (*table)[p + 2];
        partition.isSystemPartition = (*table)[p + 3] == "T";
        plan.partitions.push_back(std::move(partition));
      }
    }
    plans.push_back(std::move(plan));
  }
}

void RecoverBadSectors::runPartitions(DevicePlan& plan, std::string& guardText, bool& ran) {
  scratchValues = {plan.id};
  storeScratch("DeviceInit");
  fire("OnDeviceInit");

  for (size_t k = 0; k < plan.partitions.size(); ++k) {
    const PartitionPlan& partition = plan.partitions[k];
    currentOperation->clearLog();
    scratchValues = {plan.id, partition.name};
    storeScratch("PartitionInit");
    currentOperation->setListener(listener);
    fire("OnPartitionInit");

    uint32_t status;
    std::string operationLog;
    if (abortFlag != nullptr && abortFlag->isSet() != 0) {
      status = kToolStatusAborted;
    } else if (!partition.isSystemPartition) {
      status = currentOperation->run(plan, static_cast<int>(k));
      guardText = currentOperation->getStatusText();
      ran = true;
      operationLog = currentOperation->getLog();
    } else {
      // The operating system's partition can't be checked while it runs: the
      // user may have the check made at the next start instead.
      InputRequest request("SCHEDULER_TITLE", "SCHEDULER_DESCRIPTION", kQuestionNumberA, kQuestionNumberB);
      listener->requestInput(request);
      if (request.answer == kAnswerSchedule) {
        auto* check = dynamic_cast<CheckFilesystemOperation*>(currentOperation);
        const bool scheduled = check != nullptr && check->scheduleCheck(partition.mountPath);
        status = scheduled ? kToolStatusCheckScheduled : kToolStatusScheduleFailed;
      } else if (request.answer == kAnswerDoNotSchedule) {
        status = kToolStatusAborted;
        guardText = "Not Scheduled";
      } else {
        status = kToolStatusAborted;
        guardText = "Cannot execute on the operating system's partition";
      }
    }

    scratchValues.push_back(operationLog);
    scratchValues.push_back(std::to_string(status));
    storeScratch("PartitionFinish");
    if (!ran && !guardText.empty()) setValues("Message", {guardText});
    fire("OnPartitionFinish");
    setValues("Message", {});
  }

  scratchValues = {plan.id};
  storeScratch("DeviceFinish");
  fire("OnDeviceFinish");
}

void RecoverBadSectors::runWholeDevice(DevicePlan& plan, StorageComponent* component, std::string& guardText,
                                       bool& ran) {
  currentOperation->clearLog();
  scratchValues = {plan.id};
  storeScratch("DeviceInit");
  fire("OnDeviceInit");
  currentOperation->setListener(listener);

  uint32_t status;
  if (operationName != kRepairWord) {
    status = currentOperation->run(plan, 0);
    ran = true;
  } else {
    // A repair writes under the file systems' feet: the volumes go first and
    // come back afterwards whatever happened.
    const VolumesBack giveBack(component);
    if (component == nullptr || component->unmountVolumes() != 0) {
      status = kToolStatusDeviceUnusable;
      guardText = "Unable to unmount all partitions of the device";
    } else {
      status = currentOperation->run(plan, 0);
      ran = true;
    }
  }

  scratchValues.push_back(std::to_string(status));
  storeScratch("DeviceFinish");

  // An operation that counts no sectors (the file-system check) reports
  // zeros and an empty list.
  const uint64_t* counters = currentOperation->getCounters();
  const std::vector<uint64_t>* found = currentOperation->getBadSectors();
  std::vector<uint64_t> badList = found != nullptr ? *found : std::vector<uint64_t>();
  int64_t read = 0;
  int64_t badFound = 0;
  int64_t fixed = 0;
  if (counters != nullptr) {
    read = static_cast<int64_t>(counters[0]);
    badFound = static_cast<int64_t>(counters[1]);
    fixed = static_cast<int64_t>(counters[2]);
  }
  setValues("SectorsInfo", {std::to_string(read), std::to_string(badFound), std::to_string(fixed),
                            std::to_string(badFound - fixed)});
  std::vector<std::string> badText;
  badText.reserve(badList.size());
  for (uint64_t lba : badList) badText.push_back(std::to_string(lba));
  badList.clear();
  setValues("BadSectorsList", std::move(badText));

  log->append(currentOperation->getLog());
  if (!ran && !guardText.empty()) setValues("Message", {guardText});
  fire("OnDeviceFinish");
}

void RecoverBadSectors::filterDevices() {
  const std::vector<std::string>* operation = getValues("Operation");
  const bool rotatingOnly = operation != nullptr && operation->size() >= 2;
  std::vector<std::string> filter;
  for (SystemComponent* device : devices) {
    auto* component = dynamic_cast<StorageComponent*>(device);
    if (component == nullptr || component->getBusKind() != kBusAta ||
        component->getLocation() == kLocationExternal || component->getLocation() == kLocationRaid) {
      filter.push_back("F");
    } else if (!rotatingOnly) {
      filter.push_back("T");
    } else {
      const ComponentDescription description = component->getDescription();
      auto it = description.attributes.find("NonRotatingMedia");
      if (it == description.attributes.end()) throw std::out_of_range("invalid map<K, T> key");
      filter.push_back(it->second == "T" ? "F" : "T");
    }
  }
  setValues("DevicesFilter", std::move(filter));
}
