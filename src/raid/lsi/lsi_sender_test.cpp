// Loading, starting and releasing the LSI command libraries, against a
// scripted loader and entry points that record what they were given.
#include "raid/lsi/lsi_sender.h"

#include <gtest/gtest.h>

#include <vector>

#include "raid/lsi/lsi_test_support.h"

namespace {

using lsi_testing::ScriptedModuleLoader;

std::vector<std::pair<uint8_t, uint8_t>> gEntryCalls;
uint32_t gStartResult = 0;

uint32_t recordingEntry(void* record) {
  const auto* cmd = static_cast<const LsiCmd*>(record);
  gEntryCalls.push_back({cmd->commandClass, cmd->commandCode});
  if (cmd->commandClass == 0 && cmd->commandCode == kLsiStartLibrary) {
    EXPECT_EQ(cmd->dataLength, 68u);
    EXPECT_NE(cmd->data, 0u);
    return gStartResult;
  }
  return 0;
}

class LsiSenderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    gEntryCalls.clear();
    gStartResult = 0;
    setModuleLoaderForTesting(&loader);
  }
  void TearDown() override {
    releaseLsiStdSender();
    releaseLsiIrSender();
    releaseLsiIr2Sender();
    setModuleLoaderForTesting(nullptr);
  }
  ScriptedModuleLoader loader;
};

TEST_F(LsiSenderTest, AnAbsentLibraryGivesNoSenderAndNothingIsUnloaded) {
  EXPECT_EQ(getLsiStdSender(), nullptr);
  ASSERT_EQ(loader.loads.size(), 1u);
  EXPECT_EQ(loader.loads[0].substr(loader.loads[0].size() - 13), "\\storelib.dll");
  EXPECT_EQ(loader.loadFlags[0], 1u);
  EXPECT_TRUE(loader.unloads.empty());
  EXPECT_EQ(getLsiIrSender(), nullptr);
  EXPECT_EQ(getLsiIr2Sender(), nullptr);
  EXPECT_EQ(loader.loads[1].substr(loader.loads[1].size() - 15), "\\storelibir.dll");
  EXPECT_EQ(loader.loads[2].substr(loader.loads[2].size() - 17), "\\storelibir-2.dll");
}

TEST_F(LsiSenderTest, ALibraryWithoutTheEntryPointIsUnloadedAndEachCallTriesAnew) {
  loader.files["storelib.dll"] = true;
  EXPECT_EQ(getLsiStdSender(), nullptr);
  EXPECT_EQ(loader.resolves, std::vector<std::string>{"ProcessLibCommand"});
  EXPECT_EQ(loader.unloads.size(), 1u);
  EXPECT_EQ(getLsiStdSender(), nullptr);
  EXPECT_EQ(loader.loads.size(), 2u);
  EXPECT_EQ(loader.unloads.size(), 2u);
  // Once the entry point is there, the next call makes the sender.
  loader.entries["ProcessLibCommand"] = reinterpret_cast<void*>(&recordingEntry);
  LsiSender* sender = getLsiStdSender();
  ASSERT_NE(sender, nullptr);
  EXPECT_EQ(loader.unloads.size(), 2u);
  EXPECT_EQ(gEntryCalls, (std::vector<std::pair<uint8_t, uint8_t>>{{0, kLsiStartLibrary}}));
  // The instance is kept: no further load.
  EXPECT_EQ(getLsiStdSender(), sender);
  EXPECT_EQ(loader.loads.size(), 3u);
}

TEST_F(LsiSenderTest, ALibraryThatRefusesToStartGivesNoSenderAndIsUnloaded) {
  loader.files["storelibir.dll"] = true;
  loader.entries["ProcessLibCommandIR"] = reinterpret_cast<void*>(&recordingEntry);
  gStartResult = 7;
  EXPECT_EQ(getLsiIrSender(), nullptr);
  EXPECT_EQ(loader.unloads.size(), 1u);
  EXPECT_EQ(gEntryCalls.size(), 1u);
}

TEST_F(LsiSenderTest, ExecutePassesTheRecordAndReturnsTheLibrarysResult) {
  loader.files["storelibir-2.dll"] = true;
  loader.entries["ProcessLibCommandIR2"] = reinterpret_cast<void*>(&recordingEntry);
  LsiSender* sender = getLsiIr2Sender();
  ASSERT_NE(sender, nullptr);
  uint8_t buffer[kLsiControllerListBytes] = {};
  LsiCmd list;
  makeControllerList(list, buffer);
  EXPECT_EQ(sender->execute(list), 0u);
  EXPECT_EQ(gEntryCalls.back(), (std::pair<uint8_t, uint8_t>{0, kLsiControllerList}));
}

TEST_F(LsiSenderTest, ReleaseFreesTheLibraryThenUnloadsItAndDoesNothingTheSecondTime) {
  loader.files["storelib.dll"] = true;
  loader.entries["ProcessLibCommand"] = reinterpret_cast<void*>(&recordingEntry);
  LsiSender* sender = getLsiStdSender();
  ASSERT_NE(sender, nullptr);
  void* library = sender->getLibrary();
  releaseLsiStdSender();
  EXPECT_EQ(gEntryCalls.back(), (std::pair<uint8_t, uint8_t>{0, kLsiFreeLibrary}));
  ASSERT_EQ(loader.unloads.size(), 1u);
  EXPECT_EQ(loader.unloads[0], library);
  releaseLsiStdSender();
  EXPECT_EQ(loader.unloads.size(), 1u);
  EXPECT_EQ(gEntryCalls.size(), 2u);
}

TEST(LsiCmdRecord, CommandsCarryTheirClassCodeAddressingAndBufferSize) {
  uint8_t buffer[8];
  LsiCmd cmd;
  makeLogicalDeviceConfig(cmd, 5, 2, 9, buffer);
  EXPECT_EQ(cmd.commandClass, 3);
  EXPECT_EQ(cmd.commandCode, 0);
  EXPECT_EQ(cmd.controllerId, 5u);
  EXPECT_EQ(cmd.logicalTarget, 2);
  EXPECT_EQ(cmd.target, 9);
  EXPECT_EQ(cmd.dataLength, 384u);
  EXPECT_EQ(cmd.data, reinterpret_cast<uintptr_t>(buffer));
  makeStpPassThrough(cmd, 5, 12, buffer, 512);
  EXPECT_EQ(cmd.commandClass, 6);
  EXPECT_EQ(cmd.commandCode, 2);
  EXPECT_EQ(cmd.target, 12);
  EXPECT_EQ(cmd.logicalTarget, 0);
  EXPECT_EQ(cmd.dataLength, 572u);
  makeSspPassThrough(cmd, 5, 12, buffer, 36);
  EXPECT_EQ(cmd.commandCode, 0);
  EXPECT_EQ(cmd.dataLength, 100u);
  makeFreeLibrary(cmd);
  EXPECT_EQ(cmd.commandCode, 9);
  EXPECT_EQ(cmd.data, 0u);
  EXPECT_EQ(cmd.dataLength, 0u);
  LsiGetPdinfo info(3, 17);
  EXPECT_EQ(info.commandClass, 2);
  EXPECT_EQ(info.target, 17);
  EXPECT_EQ(info.dataLength, 512u);
  EXPECT_EQ(info.data, reinterpret_cast<uintptr_t>(info.answer()));
  const uint8_t bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(lsiU16(bytes), 0x0201u);
  EXPECT_EQ(lsiU32(bytes), 0x04030201u);
  EXPECT_EQ(lsiU64(bytes), 0x0807060504030201ull);
}

}  // namespace
