// The three functions a host finds in the library, and the types they hand out.
// Include this one header to drive the module.
#pragma once

#include "module_storage/diagnostic.h"
#include "module_storage/item_id.h"
#include "module_storage/module_interface.h"
#include "module_storage/product_version.h"
#include "module_storage/resource.h"
#include "module_storage/result_codes.h"
#include "module_storage/system_component.h"
#include "module_storage/test.h"
#include "module_storage/tool.h"

#if defined(_WIN32)
#define MODULE_STORAGE_EXPORT __declspec(dllexport)
#else
#define MODULE_STORAGE_EXPORT __attribute__((visibility("default")))
#endif

extern "C" {
// The process-wide catalogue, built on the first call and kept until release.
MODULE_STORAGE_EXPORT ModuleInterface* GetModuleInterfaceInstance();
// A new version record on every call; the caller destroys it. Null when out of memory.
MODULE_STORAGE_EXPORT ProductVersion* GetProductVersion();
// Destroys the catalogue and what hangs from it; nothing when there is none.
MODULE_STORAGE_EXPORT void ReleaseModuleInterfaceInstance();
}

// Signatures a host uses with dlsym / GetProcAddress.
using GetModuleInterfaceInstanceFn = ModuleInterface* (*)();
using GetProductVersionFn = ProductVersion* (*)();
using ReleaseModuleInterfaceInstanceFn = void (*)();
