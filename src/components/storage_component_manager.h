// Discovery: turns the disks the operating system lists into components. For
// each disk it opens a handle, learns how the disk is attached, chooses the
// protocol and the bridges that really answer, and has the component describe
// itself; then it adds the drives behind RAID controllers, drops doubles,
// makes the identities unique and sorts the list. What the operating system
// says comes from the StorageScanner; the protocols and bridges are below.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "commands/bridges/ata_bridge.h"
#include "components/storage_component.h"
#include "module_storage/system_component.h"
#include "scanner/storage_scanner.h"

class AtaProtocol;

// A disk during discovery: the handle opened on `path`, and how the disk is
// attached.
struct DiskCandidate {
  HANDLE handle = INVALID_HANDLE_VALUE;
  uint32_t location = kLocationUnknown;
  uint32_t busKind = kBusUnknown;
  std::string path;
};

class StorageComponentManager : public SystemComponentManager {
 public:
  // With a WinStorageScanner. No discovery happens here.
  explicit StorageComponentManager(const ItemId& itemId);
  // With the given scanner, for a host (or a test) that brings its own.
  StorageComponentManager(const ItemId& itemId, std::unique_ptr<StorageScanner> storageScanner);
  // Closes the components' handles, then destroys them and the scanner.
  ~StorageComponentManager() override;

  // Whether anything here can be tested, without building components: true
  // at the first local disk; USB disks are probed only after all paths were
  // seen. Every handle opened is closed again.
  bool hasDevices() override;
  // Makes the component's cached properties current; null out of range.
  SystemComponent* getRefreshedComponent(uint32_t index) override;
  // Replaces every component: pointers held from before are invalid. No test
  // may run meanwhile; the handles they use are closed.
  void refresh() override;

  // The steps of discovery, open for the tests of each.
  //
  // The protocol whose transports answer on the candidate's handle, with its
  // bus kind set; null when none does. The handle stays the caller's.
  std::unique_ptr<StorageProtocol> createProtocol(DiskCandidate& candidate);
  // Makes `*component` (with the protocol and the disk's partitions) and has
  // it describe itself: 0, or the status of the description (the component
  // exists then), or 1 when the disk number gives no identifier (no component).
  uint32_t buildComponent(uint32_t disk, std::unique_ptr<StorageProtocol> protocol,
                          std::unique_ptr<StorageComponent>* component, uint32_t location, uint32_t busKind,
                          const std::string& parentName);
  // The drives behind the RAID controllers, each a component of location 3
  // described with its controller as parent. Drives whose properties can't
  // be read are left out.
  void discoverRaidDrives(std::vector<std::unique_ptr<StorageComponent>>& out);
  // Appends each drive of `list` unless a component with the same UDI is in
  // the list already (the direct view of the same drive); `list` is emptied.
  void mergeRaidDrives(std::vector<std::unique_ptr<StorageComponent>>& list);
  // Appends the disk number to every other UDI equal to a component's own.
  void makeUdisUnique();
  // Closes each component's handle (not for drives behind a controller,
  // which have none of their own) and destroys the components.
  void clearComponents();
  // Whether a RAID controller lists an ATA or SCSI drive.
  bool hasUsableRaidDrive();

  StorageScanner* getScanner() const { return scanner.get(); }

 protected:
  // The temporary ATA protocol that looks behind an external disk's bridge
  // (buildComponent); a plain AtaProtocol. Tests give one of their own.
  virtual std::unique_ptr<AtaProtocol> makeProtocolBehindBridge();

 private:
  void closeHandle(HANDLE handle);

  std::unique_ptr<StorageScanner> scanner;
};

// IDENTIFY DEVICE through `bridge`: true when it completed, the block passes
// the identify check and exactly 512 bytes came back.
bool identifyProbe(AtaBridge& bridge);
