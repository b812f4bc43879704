// The module's one tool, "recover": a driver over three operations it owns
// ("filesystem", "scan", "repair") and the device filter "filterDevices". It
// reads its inputs from the call record, stores its outputs back into it and
// fires a named event right after each output, so that the host's handler
// finds the data under the event's name less "On".
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "module_storage/tool.h"
#include "tools/recover_bad_sectors_operation.h"
#include "tools/recover_log.h"

class ModuleInterface;
class StorageComponent;

class RecoverBadSectors : public Tool {
 public:
  // What "Message" holds, followed by the word, when "Operation" names none
  // of filterDevices, filesystem, scan and repair.
  static const char kUnknownOperationKey[];

  // Builds the log and the three operations, each with this tool as owner.
  explicit RecoverBadSectors(const ItemId& itemId);
  ~RecoverBadSectors() override;

  // Runs the operation named by the first entry of "Operation" over the
  // devices, on the caller's thread, and returns when all is done. The host
  // sets abortFlag, systemEvents and listener first; without a listener the
  // plans are built and nothing runs. An absent, empty or unknown operation
  // word throws std::invalid_argument naming it; a partition table whose
  // length is no multiple of four throws std::out_of_range ("invalid
  // vector<T> subscript"), and so does the filter for a device description
  // without "NonRotatingMedia" ("invalid map<K, T> key"). Nothing has fired
  // when one of them is thrown.
  void execute() override;
  std::string getName() const override { return "RECOVER_BAD_SECTORS"; }
  std::string getDescription() const override {
    return "SEARCH_FOR_AND_RECOVER_BAD_SECTORS_THAT_MAY_BE_PRESENT_IN_YOUR_STORAGE_DEVICES";
  }
  std::string getId() const override { return "recover"; }

  // The back reference to the catalogue that offers the tool.
  void setModule(ModuleInterface* owner) { module = owner; }
  ModuleInterface* getModule() const { return module; }

  // The operation under its word, null for an unknown word.
  RecoverBadSectorsOperation* getOperation(const std::string& word) const;
  // Replaces the operation under one of the three words (tests give the driver
  // operations of their own); an unknown word changes nothing.
  void replaceOperation(const std::string& word, std::unique_ptr<RecoverBadSectorsOperation> operation);
  const std::vector<DevicePlan>& getPlans() const { return plans; }
  const RecoverLog& getRecoverLog() const { return *log; }

 private:
  void filterDevices();
  void buildPlans();
  void runPartitions(DevicePlan& plan, std::string& guardText, bool& ran);
  void runWholeDevice(DevicePlan& plan, StorageComponent* component, std::string& guardText, bool& ran);
  void fire(const std::string& eventName);
  void storeScratch(const std::string& key) { setValues(key, scratchValues); }

  std::map<std::string, std::unique_ptr<RecoverBadSectorsOperation>> operations;
  RecoverBadSectorsOperation* currentOperation = nullptr;
  std::unique_ptr<RecoverLog> log;
  std::string operationName;
  std::vector<std::string> scratchValues;  // reused to assemble every output
  std::vector<DevicePlan> plans;           // one per device, same order
  ModuleInterface* module = nullptr;
};
