// Reading /sys/block from a recorded tree (testdata/sysfs): which entries are
// disks, in which order, on which bus, with which identity.
#include "linux_host/sysfs.h"

#include <gtest/gtest.h>

#include "win32/win32.h"

namespace linux_host {
namespace {

const std::string kTree = std::string(LINUX_HOST_TESTDATA) + "/sysfs";

const SysfsDisk* named(const std::vector<SysfsDisk>& disks, const std::string& name) {
  for (const SysfsDisk& disk : disks) {
    if (disk.name == name) return &disk;
  }
  return nullptr;
}

TEST(SysfsDisks, ListsWholeDisksInNameOrderAndLeavesOutVirtualAndOpticalDevices) {
  const std::vector<SysfsDisk> disks = listSysfsDisks(kTree, "/dev");
  std::vector<std::string> names;
  for (const SysfsDisk& disk : disks) names.push_back(disk.name);
  EXPECT_EQ(names, (std::vector<std::string>{"sda", "sdb", "sdc", "vda", "nvme0n1", "mmcblk0"}));
}

TEST(SysfsDisks, ASataDiskThroughLibataIsSataAndReachedBySgIo) {
  const std::vector<SysfsDisk> disks = listSysfsDisks(kTree, "/dev");
  const SysfsDisk* sda = named(disks, "sda");
  ASSERT_NE(sda, nullptr);
  EXPECT_EQ(sda->devicePath, "/dev/sda");
  EXPECT_EQ(sda->busType, static_cast<uint32_t>(BusTypeSata));
  EXPECT_EQ(sda->commands, CommandPath::SgIo);
  EXPECT_EQ(sda->vendor, "ATA");
  EXPECT_EQ(sda->product, "Samsung SSD 860");
  EXPECT_EQ(sda->revision, "4B6Q");
  EXPECT_EQ(sda->serial, "S3Z9NB0K1234");  // from the VPD page 80h the kernel keeps
  EXPECT_FALSE(sda->rotational);
  EXPECT_FALSE(sda->removable);
}

TEST(SysfsDisks, UsbSasVirtioNvmeAndMmcAreToldApartByTheirPaths) {
  const std::vector<SysfsDisk> disks = listSysfsDisks(kTree, "/dev");
  ASSERT_NE(named(disks, "sdb"), nullptr);
  EXPECT_EQ(named(disks, "sdb")->busType, static_cast<uint32_t>(BusTypeUsb));
  EXPECT_TRUE(named(disks, "sdb")->rotational);
  ASSERT_NE(named(disks, "sdc"), nullptr);
  EXPECT_EQ(named(disks, "sdc")->busType, static_cast<uint32_t>(BusTypeSas));
  const SysfsDisk* vda = named(disks, "vda");
  ASSERT_NE(vda, nullptr);
  EXPECT_EQ(vda->busType, static_cast<uint32_t>(BusTypeScsi));
  EXPECT_EQ(vda->commands, CommandPath::Block);
  EXPECT_EQ(vda->serial, "BHYVE-1234");
  const SysfsDisk* nvme = named(disks, "nvme0n1");
  ASSERT_NE(nvme, nullptr);
  EXPECT_EQ(nvme->busType, static_cast<uint32_t>(BusTypeNvme));
  EXPECT_EQ(nvme->product, "Samsung SSD 970 EVO Plus 1TB");
  EXPECT_EQ(nvme->serial, "S4EWNX0R123456");
  EXPECT_EQ(nvme->revision, "2B2QEXM7");
  EXPECT_EQ(nvme->nvmeNsid, 1u);
  EXPECT_EQ(nvme->nvmeEui64, "00 25 38 52 71 b1 4c 5f");
  EXPECT_EQ(nvme->nvmeNguid, "") << "the namespace has no NGUID: sysfs shows no attribute";
  EXPECT_EQ(named(disks, "sda")->nvmeNsid, 0u);
  const SysfsDisk* mmc = named(disks, "mmcblk0");
  ASSERT_NE(mmc, nullptr);
  EXPECT_EQ(mmc->busType, static_cast<uint32_t>(BusTypeMmc));
  EXPECT_EQ(mmc->product, "8GTF4R");
}

TEST(SysfsDisks, AMissingTreeGivesNoDisks) { EXPECT_TRUE(listSysfsDisks(kTree + "/nothing-here", "/dev").empty()); }

TEST(SysfsBusType, AnSdCardIsSdAndAnEmmcIsMmc) {
  EXPECT_EQ(busTypeOf("mmcblk1", "/sys/devices/platform/mmc1/mmc_host/mmc1/mmc1:aaaa/block/mmcblk1", "SD"),
            static_cast<uint32_t>(BusTypeSd));
  EXPECT_EQ(busTypeOf("mmcblk0", "/sys/devices/platform/mmc0/mmc_host/mmc0/mmc0:0001/block/mmcblk0", "MMC"),
            static_cast<uint32_t>(BusTypeMmc));
}

TEST(SysfsBusType, AUsbCardReaderIsUsbWhateverItsName) {
  EXPECT_EQ(busTypeOf("sdd", "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-3/1-3:1.0/host7/target7:0:0/7:0:0:0/block/sdd",
                      ""),
            static_cast<uint32_t>(BusTypeUsb));
}

TEST(SysfsBusType, AScsiDiskOnVirtioScsiIsScsi) {
  EXPECT_EQ(busTypeOf("sda", "/sys/devices/pci0000:00/0000:00:05.0/virtio2/host0/target0:0:0/0:0:0:0/block/sda", ""),
            static_cast<uint32_t>(BusTypeScsi));
}

TEST(SysfsOrder, NumbersCompareAsNumbersAndShorterLetterRunsComeFirst) {
  EXPECT_TRUE(diskNameLess("sdz", "sdaa"));
  EXPECT_FALSE(diskNameLess("sdaa", "sdz"));
  EXPECT_TRUE(diskNameLess("nvme2n1", "nvme10n1"));
  EXPECT_TRUE(diskNameLess("nvme0n1", "nvme0n2"));
  EXPECT_TRUE(diskNameLess("sda", "sdb"));
  EXPECT_FALSE(diskNameLess("sda", "sda"));
}

}  // namespace
}  // namespace linux_host
