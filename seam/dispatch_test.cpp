// The seam's dispatch: each Win32 call reaches the provider chosen for the
// process, a row the provider leaves empty fails with the function's own
// failure value and ERROR_CALL_NOT_IMPLEMENTED, and the last error is kept
// per thread whatever the provider.
#include "seam/provider.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "linux_host/provider.h"
#include "sim/windows/face.h"
#include "sim/windows/provider.h"

namespace {

DWORD fixedTicks() { return 4242; }

class SeamDispatch : public ::testing::Test {
 protected:
  void SetUp() override {
    table.label = "test";
    table.GetTickCount = &fixedTicks;
    seam::choose(table);
  }
  void TearDown() override { sim::uninstallMachine(); }

  seam::Provider table;
};

TEST_F(SeamDispatch, ACallReachesTheChosenProvider) { EXPECT_EQ(GetTickCount(), 4242u); }

TEST_F(SeamDispatch, AnEmptyRowFailsWithTheFunctionsFailureValue) {
  EXPECT_EQ(CreateFileA("x", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_CALL_NOT_IMPLEMENTED);
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(SetFilePointer(nullptr, 0, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_CALL_NOT_IMPLEMENTED);
  EXPECT_EQ(WaitForSingleObject(nullptr, 0), WAIT_FAILED);
  EXPECT_EQ(GetFileAttributesA("x"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(CreateEventA(nullptr, TRUE, FALSE, nullptr), nullptr);
  EXPECT_EQ(CoInitializeEx(nullptr, 0), E_NOTIMPL);
  EXPECT_FALSE(CloseHandle(nullptr));
  Sleep(5);  // a procedure without a provider does nothing
}

TEST_F(SeamDispatch, TheLastErrorIsKeptPerThread) {
  SetLastError(ERROR_ACCESS_DENIED);
  DWORD seenThere = 1;
  std::thread other([&seenThere] { seenThere = GetLastError(); });
  other.join();
  EXPECT_EQ(seenThere, ERROR_SUCCESS);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
}

TEST_F(SeamDispatch, InstallingAMachineChoosesTheSimulatedPc) {
  sim::installMachine(sim::Machine::defaultMachine());
  EXPECT_EQ(&seam::chosen(), &sim::windowsProvider());
}

TEST_F(SeamDispatch, TheEnvironmentChoosesOnceAfterTheChoiceIsForgotten) {
  const char* kept = std::getenv("MODULE_STORAGE_MACHINE");
  const std::string before = kept != nullptr ? kept : "";
  setenv("MODULE_STORAGE_MACHINE", "host", 1);
  seam::forgetChoice();
  EXPECT_EQ(&seam::chosen(), &linux_host::provider());
  setenv("MODULE_STORAGE_MACHINE", "default", 1);
  EXPECT_EQ(&seam::chosen(), &linux_host::provider());  // chosen once
  seam::forgetChoice();
  EXPECT_EQ(&seam::chosen(), &sim::windowsProvider());
  if (kept != nullptr) {
    setenv("MODULE_STORAGE_MACHINE", before.c_str(), 1);
  } else {
    unsetenv("MODULE_STORAGE_MACHINE");
  }
}

}  // namespace
