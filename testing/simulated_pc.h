// A test fixture on the simulated PC: each test installs the machine it needs
// (the built-in one or a description of its own), opens disks and volumes
// through the Win32 seam, and leaves a PC without disks and without open
// handles behind.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sim/machine.h"
#include "sim/windows/face.h"
#include "win32/win32.h"

namespace mstest {

class SimulatedPcTest : public ::testing::Test {
 protected:
  void SetUp() override { sim::uninstallMachine(); }
  void TearDown() override {
    for (HANDLE handle : opened) CloseHandle(handle);
    opened.clear();
    sim::uninstallMachine();
  }

  // The built-in machine; null (and the test failed) if it was refused.
  sim::Machine* installDefault() { return installMachine(sim::Machine::defaultMachine(), ""); }

  // A machine from its description; null (and the test failed) if refused.
  sim::Machine* installJson(const std::string& json) {
    std::string error;
    std::unique_ptr<sim::Machine> machine = sim::Machine::fromJsonText(json, &error);
    EXPECT_NE(machine, nullptr) << error;
    if (machine == nullptr) return nullptr;
    return installMachine(std::move(machine), json);
  }

  // Opens a path for reading and writing, shared; closed at the end of the
  // test. INVALID_HANDLE_VALUE (and the test failed) if it does not open.
  HANDLE openPath(const std::string& path, DWORD access = GENERIC_READ | GENERIC_WRITE) {
    HANDLE handle =
        CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(handle, INVALID_HANDLE_VALUE) << path;
    if (handle != INVALID_HANDLE_VALUE) opened.push_back(handle);
    return handle;
  }

  HANDLE openDisk(uint32_t number) { return openPath("\\\\.\\PhysicalDrive" + std::to_string(number)); }

  std::vector<HANDLE> opened;

 private:
  sim::Machine* installMachine(std::unique_ptr<sim::Machine> machine, const std::string& what) {
    sim::Machine* raw = machine.get();
    std::string error;
    const bool installed = sim::installMachine(std::move(machine), &error);
    EXPECT_TRUE(installed) << error << "\n" << what;
    return installed ? raw : nullptr;
  }
};

}  // namespace mstest
