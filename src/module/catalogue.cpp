// The catalogue's contents. A test class joins by adding its row in its place
// in the table; numbers are global over the two diagnostics and not dense.
#include "module/catalogue.h"

#include <new>

#include "components/storage_component_manager.h"
#include "diagnostics/default_self.h"
#include "diagnostics/device_read.h"
#include "diagnostics/device_write.h"
#include "diagnostics/drive_self.h"
#include "diagnostics/extended_self.h"
#include "diagnostics/funnel_seek.h"
#include "diagnostics/random_seek.h"
#include "diagnostics/short_self.h"
#include "diagnostics/smart_status.h"
#include "diagnostics/targeted_read.h"
#include "resource/storage_resource.h"
#include "tools/recover_bad_sectors.h"

namespace {
template <typename T>
Test* make(const ItemId& id) {
  return new (std::nothrow) T(id);
}
}  // namespace

const std::vector<CatalogueRow>& catalogueRows() {
  static const std::vector<CatalogueRow> rows = {
      // quick diagnostic, in its order: 1.1.1 ... 1.1.7, 1.1.11
      {1, 1, &make<SmartStatusTest>},
      {1, 2, &make<TargetedReadTest>},
      {1, 3, &make<QuickRandomSeekTest>},
      {1, 4, &make<QuickFunnelSeekTest>},
      {1, 5, &make<ShortSelfTest>},
      {1, 6, &make<QuickDriveSelfTest>},
      {1, 7, &make<DefaultSelfTest>},
      {1, 11, &make<StorageDeviceReadTest>},
      // extended diagnostic, in its order: 1.2.8, 1.2.9, 1.2.10, 1.2.12
      {2, 8, &make<ExtendedRandomSeekTest>},
      {2, 9, &make<ExtendedFunnelSeekTest>},
      {2, 10, &make<ExtendedSelfTest>},
      {2, 12, &make<StorageDeviceWriteTest>},
  };
  return rows;
}

Resource* createResource(const ItemId& id) { return new (std::nothrow) StorageResource(id); }

SystemComponentManager* createComponentManager(const ItemId& id) {
  return new (std::nothrow) StorageComponentManager(id);
}

Tool* createRecoverTool(const ItemId& id) { return new (std::nothrow) RecoverBadSectors(id); }

void attachToolOwner(Tool* tool, ModuleInterface* owner) {
  if (auto* recover = dynamic_cast<RecoverBadSectors*>(tool)) recover->setModule(owner);
}
