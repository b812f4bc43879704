// The base of every test of the module: binds the run context and decides
// whether a run must stop for an abort or a system event.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "components/storage_component.h"
#include "module_storage/test.h"

// Flags of the host's system-event byte that make a running test's outcome
// doubtful. Bits 2, 4 and 7 are left out on purpose.
constexpr uint8_t kCompromisingSystemEventMask = 0x6b;

constexpr char kKeySystemEventAbort[] =
    "TEST_ABORTED_BECAUSE_A_SYSTEM_EVENT_THAT_COULD_COMPROMISE_THE_OUTCOME_HAS_HAPPENED";

class StorageTest : public Test {
 public:
  explicit StorageTest(const ItemId& itemId) : Test(itemId) {}

  // Common form: a StorageComponent whose checkSupported says 0, asked through
  // the process-wide null listener and log so that no event reaches the host.
  bool isSupported(SystemComponent* component) override;
  bool isOptionA() override { return false; }

  // Can the test run? 0 means yes. May speak to the listener and the log.
  virtual uint32_t checkSupported(StorageComponent* component, TestListener* listener, MessageLog* log) = 0;
  // The last step before the body; as a rule calls checkSupported first.
  virtual uint32_t prepare(StorageComponent* component, TestListener* listener, MessageLog* log) = 0;
  // Reads one sector for the test: through the handle, then through the
  // device command, which has the last word. A drive behind a RAID controller
  // has no handle of its own and is asked twice through its commands.
  virtual uint32_t readSectorsForTest(uint64_t lba, void* buffer);

 protected:
  // Stores the context, component, protocol, log and listener, in that order;
  // INVALID at the first that is missing, keeping what was stored before it.
  uint32_t bindContext(TestRunContext* runContext);
  // True when the host's system-event byte holds a compromising flag.
  bool hasCompromisingSystemEvent() const;
  // True when the run must stop. A system event is announced once per run.
  bool checkAbort(TestRunContext* runContext);
  // As checkAbort, but announces only when `announce` is true and never
  // touches abortAnnounced.
  bool checkAbortAnnounced(TestRunContext* runContext, bool announce);
  // Turns a failed read into the run's verdict: 0 lets the test go on. A lost
  // device ends with ABORTED; a media error counts towards the allowance of
  // distinct bad sectors; a refused access ends NOT_APPLICABLE.
  uint32_t handleReadFailure(uint64_t lba, uint32_t status, uint8_t percent, uint32_t allowedBadSectors,
                             std::set<uint64_t>& badSectors, TestListener* runListener, MessageLog* runLog);

  StorageComponent* component = nullptr;
  StorageProtocol* protocol = nullptr;
  TestListener* listener = nullptr;
  MessageLog* log = nullptr;
  TestRunContext* context = nullptr;
  bool abortAnnounced = false;

 private:
  bool checkAbortWith(TestRunContext* runContext, bool announce, bool onceOnly);
};
