// Finds the RAID controllers of the machine: those an LSI command library
// reports, and the chipset adapters that answer CSMI. Lives for one
// discovery; the storage component manager takes the drives' protocols from
// its controllers and drops it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "module_storage/system_component.h"
#include "win32/win32.h"

// A storage adapter as the enumeration found it.
struct StorageAdapter {
  std::string path;
  HANDLE handle = nullptr;
  std::string friendlyName;
  std::string vendorId;  // four characters at position 12 of the path
  std::string deviceId;  // four characters at position 21
};

// The storage adapters whose interface path opens, in the device service's
// order. Each record holds its open handle; the caller closes it.
std::vector<StorageAdapter> enumerateStorageAdapters();
// Whether the adapter is one of the chipset RAID adapters asked for CSMI:
// vendor 8086 with device 1D69, 1D02, 3C02, 2826, 1D68 or 1D6B. The ids are
// upper-cased in place.
bool passesIdentityTest(StorageAdapter& adapter);

class RaidComponentManager : public SystemComponentManager {
 public:
  explicit RaidComponentManager(const ItemId& itemId);
  ~RaidComponentManager() override;

  // True at the first LSI library that reports a controller, or at the first
  // adapter that passes the identity test and answers CSMI. Every adapter
  // handle opened here is closed again.
  bool hasDevices() override;
  // Does nothing; null.
  SystemComponent* getRefreshedComponent(uint32_t index) override;
  // Lists the controllers that describe themselves: LSI ones by library
  // flavour, then the CSMI adapters. The adapters' handles stay open: the
  // drives' protocols use them.
  void refresh() override;
};
