// The COM runtime of the simulated PC: apartments per thread, process-wide
// security, the creation of the WMI locator, and the OLE automation strings,
// variants and safe arrays that travel with it. The WMI service itself is in
// wmi.cpp; its classes in wmi_catalogue.cpp.
#include <cstdlib>
#include <cstring>

#include "sim/windows/face_state.h"
#include "sim/windows/wmi.h"
#include "sim/windows/wmi_state.h"

namespace sim {
namespace windows {

namespace {

// The apartment of the calling thread: how often CoInitializeEx succeeded
// without its CoUninitialize, and in which mode.
thread_local int tComDepth = 0;
thread_local DWORD tComMode = 0;

constexpr GUID kLocatorClass = {0x4590F811, 0x1D3A, 0x11D0, {0x89, 0x1F, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
constexpr GUID kLocatorInterface = {0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
constexpr GUID kUnknownInterface = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

// fFeatures bits of a safe array: its elements are BSTRs / it was made with
// a type.
constexpr USHORT FADF_HAVEVARTYPE = 0x0080;
constexpr USHORT FADF_BSTR = 0x0100;

bool sameGuid(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }

ULONG elementSize(VARTYPE type) {
  switch (type) {
    case VT_I1:
    case VT_UI1:
      return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
      return 2;
    case VT_I4:
    case VT_UI4:
    case VT_R4:
    case VT_INT:
    case VT_UINT:
      return 4;
    case VT_R8:
    case VT_I8:
    case VT_UI8:
      return 8;
    case VT_BSTR:
      return sizeof(BSTR);
    default:
      return 0;
  }
}

// The element a one-dimensional index names, or null when out of bounds.
uint8_t* elementAt(SAFEARRAY* array, const LONG* indices) {
  if (array == nullptr || indices == nullptr || array->cDims != 1) return nullptr;
  const int64_t at = static_cast<int64_t>(indices[0]) - array->rgsabound[0].lLbound;
  if (at < 0 || at >= static_cast<int64_t>(array->rgsabound[0].cElements)) return nullptr;
  return static_cast<uint8_t*>(array->pvData) + at * array->cbElements;
}

}  // namespace

}  // namespace windows

ComUsage comUsage() {
  const windows::ManagementState& state = windows::management();
  ComUsage usage;
  usage.objects = state.liveObjects;
  usage.strings = state.liveStrings;
  usage.arrays = state.liveArrays;
  usage.initialisations = windows::tComDepth;
  return usage;
}

}  // namespace sim

// The Win32 functions this file serves, handed to the seam by provider.cpp.
namespace sim {
namespace api {

using sim::windows::callFails;
using sim::windows::management;
using sim::windows::noteCall;

HRESULT CoInitializeEx(LPVOID, DWORD coInit) {
  using namespace sim::windows;
  noteCall("CoInitializeEx " + std::to_string(coInit));
  if (callFails("CoInitializeEx")) return E_OUTOFMEMORY;
  if (tComDepth == 0) {
    tComMode = coInit;
    tComDepth = 1;
    return S_OK;
  }
  if (tComMode != coInit) return RPC_E_CHANGED_MODE;
  ++tComDepth;
  return S_FALSE;
}

void CoUninitialize() {
  noteCall("CoUninitialize");
  if (sim::windows::tComDepth > 0) --sim::windows::tComDepth;
}

HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR, LONG authServiceCount, SOLE_AUTHENTICATION_SERVICE*, void*,
                             DWORD authnLevel, DWORD impLevel, void*, DWORD capabilities, void*) {
  using namespace sim::windows;
  noteCall("CoInitializeSecurity " + std::to_string(authServiceCount) + " " + std::to_string(authnLevel) + " " +
           std::to_string(impLevel) + " " + std::to_string(capabilities));
  if (tComDepth == 0) return CO_E_NOTINITIALIZED;
  if (callFails("CoInitializeSecurity")) return E_OUTOFMEMORY;
  // Security is set once per process; later calls are too late.
  if (management().securitySet) return RPC_E_TOO_LATE;
  management().securitySet = true;
  return S_OK;
}

HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD classContext, REFIID interfaceId, LPVOID* object) {
  using namespace sim::windows;
  noteCall("CoCreateInstance " + std::to_string(classContext));
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (tComDepth == 0) return CO_E_NOTINITIALIZED;
  if (callFails("CoCreateInstance")) return REGDB_E_CLASSNOTREG;
  if (!sameGuid(classId, kLocatorClass) || (classContext & CLSCTX_INPROC_SERVER) == 0) return REGDB_E_CLASSNOTREG;
  if (outer != nullptr) return E_INVALIDARG;  // the locator can't be aggregated
  if (!sameGuid(interfaceId, kLocatorInterface) && !sameGuid(interfaceId, kUnknownInterface)) return E_NOINTERFACE;
  *object = newLocator();
  return S_OK;
}

HRESULT CoSetProxyBlanket(IUnknown* proxy, DWORD authnService, DWORD authzService, OLECHAR*, DWORD authnLevel,
                          DWORD impLevel, RPC_AUTH_IDENTITY_HANDLE, DWORD capabilities) {
  noteCall("CoSetProxyBlanket " + std::to_string(authnService) + " " + std::to_string(authzService) + " " +
           std::to_string(authnLevel) + " " + std::to_string(impLevel) + " " + std::to_string(capabilities));
  if (proxy == nullptr) return E_INVALIDARG;
  if (callFails("CoSetProxyBlanket")) return E_ACCESSDENIED;
  return S_OK;
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
  // [byte length: 4][characters][NUL: 2]
  auto* block = static_cast<uint8_t*>(std::calloc(1, sizeof(uint32_t) + (static_cast<size_t>(length) + 1) * 2));
  if (block == nullptr) return nullptr;
  const uint32_t bytes = length * 2;
  std::memcpy(block, &bytes, sizeof(bytes));
  BSTR string = reinterpret_cast<BSTR>(block + sizeof(uint32_t));
  if (text != nullptr) std::memcpy(string, text, static_cast<size_t>(length) * 2);
  ++management().liveStrings;
  return string;
}

BSTR SysAllocString(const OLECHAR* text) {
  if (text == nullptr) return nullptr;
  UINT length = 0;
  while (text[length] != 0) ++length;
  return SysAllocStringLen(text, length);
}

void SysFreeString(BSTR text) {
  if (text == nullptr) return;
  --management().liveStrings;
  std::free(reinterpret_cast<uint8_t*>(text) - sizeof(uint32_t));
}

UINT SysStringLen(BSTR text) {
  if (text == nullptr) return 0;
  uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<uint8_t*>(text) - sizeof(uint32_t), sizeof(bytes));
  return bytes / 2;
}

void VariantInit(VARIANTARG* value) {
  if (value == nullptr) return;
  std::memset(value, 0, sizeof(VARIANT));
  value->vt = VT_EMPTY;
}

HRESULT VariantClear(VARIANTARG* value) {
  if (value == nullptr) return E_INVALIDARG;
  if ((value->vt & VT_BYREF) == 0) {
    if ((value->vt & VT_ARRAY) != 0) {
      SafeArrayDestroy(value->parray);
    } else if (value->vt == VT_BSTR) {
      SysFreeString(value->bstrVal);
    } else if ((value->vt == VT_UNKNOWN || value->vt == VT_DISPATCH) && value->punkVal != nullptr) {
      value->punkVal->Release();
    }
  }
  std::memset(value, 0, sizeof(VARIANT));
  value->vt = VT_EMPTY;
  return S_OK;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG elements) {
  using namespace sim::windows;
  const ULONG size = elementSize(type);
  if (size == 0) return nullptr;
  auto* array = static_cast<SAFEARRAY*>(std::calloc(1, sizeof(SAFEARRAY)));
  if (array == nullptr) return nullptr;
  array->cDims = 1;
  array->fFeatures = static_cast<USHORT>(FADF_HAVEVARTYPE | (type == VT_BSTR ? FADF_BSTR : 0));
  array->cbElements = size;
  array->rgsabound[0].cElements = elements;
  array->rgsabound[0].lLbound = lowerBound;
  array->pvData = std::calloc(elements == 0 ? 1 : elements, size);
  if (array->pvData == nullptr) {
    std::free(array);
    return nullptr;
  }
  ++management().liveArrays;
  return array;
}

HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* value) {
  using namespace sim::windows;
  uint8_t* slot = elementAt(array, indices);
  if (slot == nullptr) return array == nullptr || indices == nullptr ? E_INVALIDARG : DISP_E_BADINDEX;
  if ((array->fFeatures & FADF_BSTR) != 0) {
    // The array keeps a copy of the string, and frees what stood there.
    BSTR given = static_cast<BSTR>(value);
    BSTR copy = given == nullptr ? nullptr : SysAllocStringLen(given, SysStringLen(given));
    BSTR old = nullptr;
    std::memcpy(&old, slot, sizeof(BSTR));
    SysFreeString(old);
    std::memcpy(slot, &copy, sizeof(BSTR));
    return S_OK;
  }
  if (value == nullptr) return E_INVALIDARG;
  std::memcpy(slot, value, array->cbElements);
  return S_OK;
}

HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* value) {
  using namespace sim::windows;
  uint8_t* slot = elementAt(array, indices);
  if (slot == nullptr) return array == nullptr || indices == nullptr ? E_INVALIDARG : DISP_E_BADINDEX;
  if (value == nullptr) return E_INVALIDARG;
  if ((array->fFeatures & FADF_BSTR) != 0) {
    BSTR stored = nullptr;
    std::memcpy(&stored, slot, sizeof(BSTR));
    BSTR copy = stored == nullptr ? nullptr : SysAllocStringLen(stored, SysStringLen(stored));
    std::memcpy(value, &copy, sizeof(BSTR));
    return S_OK;
  }
  std::memcpy(value, slot, array->cbElements);
  return S_OK;
}

HRESULT SafeArrayDestroy(SAFEARRAY* array) {
  using namespace sim::windows;
  if (array == nullptr) return S_OK;
  if ((array->fFeatures & FADF_BSTR) != 0) {
    for (ULONG i = 0; i < array->rgsabound[0].cElements; ++i) {
      BSTR element = nullptr;
      std::memcpy(&element, static_cast<uint8_t*>(array->pvData) + i * sizeof(BSTR), sizeof(BSTR));
      SysFreeString(element);
    }
  }
  std::free(array->pvData);
  std::free(array);
  --management().liveArrays;
  return S_OK;
}

}  // namespace api
}  // namespace sim
