// Child processes with pipes, controller libraries, SetupAPI enumeration and
// the CSMI adapter on the simulated PC.
#include "sim/windows/face_test_support.h"

#include <vector>

#include "win32/csmi.h"

namespace sim {
namespace windows {
namespace testing {
namespace {

class ProcessFaceTest : public FaceTest {};

std::string readAll(HANDLE pipe, HANDLE process, DWORD* exitCode) {
  std::string text;
  char byte = 0;
  DWORD n = 0;
  while (ReadFile(pipe, &byte, 1, &n, nullptr) && n == 1) text += byte;
  EXPECT_EQ(GetLastError(), ERROR_BROKEN_PIPE);
  EXPECT_TRUE(GetExitCodeProcess(process, exitCode));
  return text;
}

PROCESS_INFORMATION start(const char16_t* commandLine, HANDLE* readEnd) {
  SECURITY_ATTRIBUTES security{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  HANDLE writeEnd = nullptr;
  EXPECT_TRUE(CreatePipe(readEnd, &writeEnd, &security, 0));
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = *readEnd;
  startup.hStdOutput = writeEnd;
  startup.hStdError = writeEnd;
  Win32WideString line(commandLine);
  PROCESS_INFORMATION info{};
  EXPECT_TRUE(CreateProcessW(nullptr, &line[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW | NORMAL_PRIORITY_CLASS,
                             nullptr, nullptr, &startup, &info));
  CloseHandle(writeEnd);
  return info;
}

TEST_F(ProcessFaceTest, AScriptedCheckerWritesItsOutputThroughThePipeAndEndsWithItsCode) {
  install({}, nlohmann::json::parse(R"({"processes": [
    {"image": "chkdsk.exe", "lines": ["The type of the file system is NTFS.", "12 percent complete.", "100 percent complete."],
     "exitCode": 1}]})"));
  HANDLE pipe = nullptr;
  PROCESS_INFORMATION info = start(u"C:\\Windows\\system32\\chkdsk.exe C: /F", &pipe);
  DWORD code = 0;
  ASSERT_TRUE(GetExitCodeProcess(info.hProcess, &code));
  EXPECT_EQ(code, STILL_ACTIVE);
  const std::string text = readAll(pipe, info.hProcess, &code);
  EXPECT_EQ(text, "The type of the file system is NTFS.\r\n12 percent complete.\r\n100 percent complete.\r\n");
  EXPECT_EQ(code, 1u);
  EXPECT_EQ(WaitForSingleObject(info.hProcess, 0), WAIT_OBJECT_0);
  CloseHandle(pipe);
  CloseHandle(info.hProcess);
  CloseHandle(info.hThread);
}

TEST_F(ProcessFaceTest, TerminateProcessEndsARunningChildWithTheGivenCode) {
  install({}, nlohmann::json::parse(R"({"processes": [{"image": "chkdsk.exe", "output": "a\r\nb\r\nc\r\n"}]})"));
  HANDLE pipe = nullptr;
  PROCESS_INFORMATION info = start(u"chkdsk.exe D: /F", &pipe);
  char byte = 0;
  DWORD n = 0;
  ASSERT_TRUE(ReadFile(pipe, &byte, 1, &n, nullptr));
  EXPECT_EQ(byte, 'a');
  ASSERT_TRUE(TerminateProcess(info.hProcess, 3));
  DWORD code = 0;
  ASSERT_TRUE(GetExitCodeProcess(info.hProcess, &code));
  EXPECT_EQ(code, 3u);
  EXPECT_FALSE(TerminateProcess(info.hProcess, 4));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  CloseHandle(pipe);
  CloseHandle(info.hProcess);
  CloseHandle(info.hThread);
}

TEST_F(ProcessFaceTest, AnUnknownImageCannotBeStarted) {
  install({});
  Win32WideString line(u"format.com C:");
  STARTUPINFOW startup{};
  PROCESS_INFORMATION info{};
  EXPECT_FALSE(CreateProcessW(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

int storelibEntry(void* record) { return record == nullptr ? 1 : 0; }

TEST_F(ProcessFaceTest, ALibraryTheMachineOffersLoadsAndResolvesItsRegisteredEntryPoint) {
  registerLibraryFunction("storelib.dll", "ProcessLibCommand", reinterpret_cast<void*>(&storelibEntry));
  install({}, nlohmann::json::parse(R"({"libraries": ["storelib.dll"]})"));
  HMODULE module = LoadLibraryA("C:\\Program Files\\Diagnostics\\storelib.dll");
  ASSERT_NE(module, nullptr);
  FARPROC entry = GetProcAddress(module, "ProcessLibCommand");
  ASSERT_NE(entry, nullptr);
  // Through void*, as a caller of GetProcAddress converts an entry point.
  auto call = reinterpret_cast<int (*)(void*)>(reinterpret_cast<void*>(entry));
  int record = 0;
  EXPECT_EQ(call(&record), 0);
  EXPECT_EQ(GetProcAddress(module, "ProcessLibCommandIR"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
  EXPECT_TRUE(FreeLibrary(module));
  EXPECT_EQ(LoadLibraryA("storelibir.dll"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

TEST_F(ProcessFaceTest, SetupApiListsTheDisksWithPathsThatOpen) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr), makeDisk("b", 4096, std::make_shared<FakeAta>(), nullptr)});
  const GUID disks{0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
  HDEVINFO set = SetupDiGetClassDevsW(&disks, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  ASSERT_NE(set, INVALID_HANDLE_VALUE);
  DWORD index = 0;
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  std::vector<DWORD> numbers;
  while (SetupDiEnumDeviceInterfaces(set, nullptr, &disks, index++, &data)) {
    DWORD need = 0;
    EXPECT_FALSE(SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, &need, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
    std::vector<uint8_t> buffer(need);
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
    detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    ASSERT_TRUE(SetupDiGetDeviceInterfaceDetailW(set, &data, detail, need, nullptr, &device));
    HANDLE disk = CreateFileW(detail->DevicePath, 0, 3, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(disk, INVALID_HANDLE_VALUE);
    STORAGE_DEVICE_NUMBER number{};
    DWORD returned = 0;
    ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, 12, &returned, nullptr));
    numbers.push_back(number.DeviceNumber);
    CloseHandle(disk);
    WCHAR name[64] = {};
    EXPECT_TRUE(SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_FRIENDLYNAME, nullptr,
                                                  reinterpret_cast<BYTE*>(name), sizeof(name), nullptr));
    EXPECT_EQ(Win32WideString(name), u"ST1000DM003");
  }
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(numbers, (std::vector<DWORD>{0, 1}));
  EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
}

TEST_F(ProcessFaceTest, ACsmiAdapterAnswersConfigurationPhysAndStpPassThrough) {
  auto ata = std::make_shared<FakeAta>();
  install({makeDisk("member", 4096, ata, nullptr)}, nlohmann::json::parse(R"({"controllers": [
    {"vendorId": "8086", "deviceId": "2826", "friendlyName": "Intel RAID", "controllerFlags": 8,
     "biosVersion": [1, 2, 3, 4], "phys": [{"protocol": "sata", "disk": "member"}, {"protocol": "smp"}],
     "raidSets": [{"raidType": 2, "status": 1, "information": 0, "capacityMiB": 100,
                   "drives": [{"model": "ST1000", "serial": "Z1"}]}]}]})"));
  HANDLE adapter = CreateFileA("\\\\.\\Scsi0:", GENERIC_READ | GENERIC_WRITE, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(adapter, INVALID_HANDLE_VALUE);
  auto header = [](SRB_IO_CONTROL& h, const char* signature, ULONG code, size_t size) {
    h.HeaderLength = sizeof(SRB_IO_CONTROL);
    std::memcpy(h.Signature, signature, 8);
    h.Timeout = 60;
    h.ControlCode = code;
    h.Length = static_cast<ULONG>(size - sizeof(SRB_IO_CONTROL));
  };
  DWORD returned = 0;
  CSMI_SAS_CNTLR_CONFIG_BUFFER config{};
  header(config.IoctlHeader, "CSMIALL", CC_CSMI_SAS_GET_CNTLR_CONFIG, sizeof(config));
  ASSERT_TRUE(DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT, &config, sizeof(config), &config, sizeof(config), &returned,
                              nullptr));
  EXPECT_EQ(config.IoctlHeader.ReturnCode, CSMI_SAS_STATUS_SUCCESS);
  EXPECT_EQ(config.Configuration.uControllerFlags, 8u);
  EXPECT_EQ(config.Configuration.usBIOSBuildRevision, 3);

  CSMI_SAS_PHY_INFO_BUFFER phys{};
  header(phys.IoctlHeader, "CSMISAS", CC_CSMI_SAS_GET_PHY_INFO, sizeof(phys));
  ASSERT_TRUE(DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT, &phys, sizeof(phys), &phys, sizeof(phys), &returned, nullptr));
  EXPECT_EQ(phys.Information.bNumberOfPhys, 2);
  EXPECT_EQ(phys.Information.Phy[0].Attached.bDeviceType, CSMI_SAS_END_DEVICE);
  EXPECT_EQ(phys.Information.Phy[1].Attached.bTargetPortProtocol, CSMI_SAS_PROTOCOL_SMP);

  std::vector<uint8_t> stp(sizeof(CSMI_SAS_STP_PASSTHRU_BUFFER) - 4 + 512, 0);
  auto* request = reinterpret_cast<CSMI_SAS_STP_PASSTHRU_BUFFER*>(stp.data());
  header(request->IoctlHeader, "CSMISAS", CC_CSMI_SAS_STP_PASSTHRU, stp.size());
  request->Parameters.bPhyIdentifier = 0;
  request->Parameters.bCommandFIS[0] = 0x27;
  request->Parameters.bCommandFIS[1] = 0x80;
  request->Parameters.bCommandFIS[2] = 0xEC;
  request->Parameters.uFlags = CSMI_SAS_STP_READ | CSMI_SAS_STP_PIO;
  request->Parameters.uDataLength = 512;
  ASSERT_TRUE(DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT, stp.data(), static_cast<DWORD>(stp.size()), stp.data(),
                              static_cast<DWORD>(stp.size()), &returned, nullptr));
  EXPECT_EQ(request->IoctlHeader.ReturnCode, CSMI_SAS_STATUS_SUCCESS);
  EXPECT_EQ(ata->last.command, 0xEC);
  EXPECT_EQ(request->Status.bStatusFIS[2], 0x50);
  EXPECT_EQ(stp[164 + 54], 'S');

  std::vector<uint8_t> raid(sizeof(CSMI_SAS_RAID_CONFIG_BUFFER), 0);
  auto* set = reinterpret_cast<CSMI_SAS_RAID_CONFIG_BUFFER*>(raid.data());
  header(set->IoctlHeader, "CSMIARY", CC_CSMI_SAS_GET_RAID_CONFIG, raid.size());
  set->Configuration.uRaidSetIndex = 1;
  ASSERT_TRUE(DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT, raid.data(), static_cast<DWORD>(raid.size()), raid.data(),
                              static_cast<DWORD>(raid.size()), &returned, nullptr));
  EXPECT_EQ(set->IoctlHeader.ReturnCode, CSMI_SAS_RAID_SET_OUT_OF_RANGE);
  set->Configuration.uRaidSetIndex = 0;
  ASSERT_TRUE(DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT, raid.data(), static_cast<DWORD>(raid.size()), raid.data(),
                              static_cast<DWORD>(raid.size()), &returned, nullptr));
  EXPECT_EQ(set->Configuration.bStatus, 1);
  EXPECT_STREQ(reinterpret_cast<const char*>(set->Configuration.Drives[0].bModel), "ST1000");

  SRB_IO_CONTROL wrong{};
  header(wrong, "CSMIALL", CC_CSMI_SAS_GET_CNTLR_CONFIG, sizeof(config));
  EXPECT_FALSE(DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT, &wrong, sizeof(wrong), &wrong, sizeof(wrong), &returned,
                               nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  CloseHandle(adapter);
}

// The token of a machine loaded from its description holds what
// "privileges" lists: by default SeManageVolumePrivilege among others, with
// [] none, so that enabling it succeeds with ERROR_NOT_ALL_ASSIGNED.
DWORD enableManageVolume() {
  HANDLE token = nullptr;
  EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
  TOKEN_PRIVILEGES privileges{};
  privileges.PrivilegeCount = 1;
  EXPECT_TRUE(LookupPrivilegeValueA(nullptr, "SeManageVolumePrivilege", &privileges.Privileges[0].Luid));
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr));
  const DWORD result = GetLastError();
  CloseHandle(token);
  return result;
}

void installJson(const std::string& text) {
  std::string error;
  auto machine = Machine::fromJsonText(text, &error);
  ASSERT_NE(machine, nullptr) << error;
  ASSERT_TRUE(installMachine(std::move(machine), &error)) << error;
}

TEST_F(ProcessFaceTest, LoadedMachineWithoutPrivilegesKeyHoldsManageVolume) {
  installJson(R"({"disks": []})");
  EXPECT_EQ(enableManageVolume(), static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_TRUE(privilegeEnabled("SeManageVolumePrivilege"));
}

TEST_F(ProcessFaceTest, LoadedMachineWithEmptyPrivilegesCannotEnableManageVolume) {
  installJson(R"({"privileges": [], "disks": []})");
  EXPECT_EQ(enableManageVolume(), static_cast<DWORD>(ERROR_NOT_ALL_ASSIGNED));
  EXPECT_FALSE(privilegeEnabled("SeManageVolumePrivilege"));
}

TEST_F(ProcessFaceTest, LoadedMachineListingOtherPrivilegesOnlyLacksManageVolume) {
  installJson(R"({"privileges": ["SeChangeNotifyPrivilege"], "disks": []})");
  EXPECT_EQ(enableManageVolume(), static_cast<DWORD>(ERROR_NOT_ALL_ASSIGNED));
  EXPECT_FALSE(privilegeEnabled("SeManageVolumePrivilege"));
  installJson(R"({"privileges": ["SeManageVolumePrivilege"], "disks": []})");
  EXPECT_EQ(enableManageVolume(), static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_TRUE(privilegeEnabled("SeManageVolumePrivilege"));
}

}  // namespace
}  // namespace testing
}  // namespace windows
}  // namespace sim
