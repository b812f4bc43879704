// The SMART status test (1.1.1): has any SMART attribute of the drive crossed
// its failure threshold? It reads no media; which command answers is the
// protocol's business.
#pragma once

#include <cstdint>
#include <memory>

#include "diagnostics/smart_enable_guard.h"
#include "module/storage_test.h"

constexpr char kKeyNotSupportedExternal[] = "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE";
constexpr char kKeySmartNotSupported[] = "SMART_NOT_SUPPORTED";
constexpr char kKeyCannotEnableSmart[] = "CANNOT_ENABLE_SMART";

class SmartStatusTest : public StorageTest {
 public:
  explicit SmartStatusTest(const ItemId& itemId) : StorageTest(itemId) {}
  ~SmartStatusTest() override;

  // The verdict carries no message key: the host reads it from the result.
  uint32_t run(TestRunContext* runContext) override;
  // Decides from the cached properties only: external devices and devices
  // without the SMART feature set are refused (3), with one key each.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported, then SMART on through the guard made by run.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;

 protected:
  std::unique_ptr<SmartEnableGuard> smartGuard;
};
