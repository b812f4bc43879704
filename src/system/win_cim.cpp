// WinCim: WMI queries through COM. A query initialises COM on the calling
// thread, connects to the namespace, runs the WQL text, turns each object's
// fields into text, and undoes everything before it returns. The platform's
// reason for a failure (its HRESULT) is dropped: the status says where.
#include "system/win_cim.h"

#include <memory>
#include <sstream>

#include "system/wide_text.h"

const CLSID kWbemLocatorClassId = {0x4590F811, 0x1D3A, 0x11D0, {0x89, 0x1F, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
const IID kWbemLocatorInterfaceId = {0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};

namespace {

constexpr size_t kMaxTextValue = 500;

// Owns a BSTR made from narrow text for the length of one call.
class OwnedBstr {
 public:
  explicit OwnedBstr(const char* text) : value_(SysAllocString(utf8ToWide(text).c_str())) {}
  explicit OwnedBstr(const OLECHAR* text) : value_(SysAllocString(text)) {}
  ~OwnedBstr() { SysFreeString(value_); }
  OwnedBstr(const OwnedBstr&) = delete;
  OwnedBstr& operator=(const OwnedBstr&) = delete;
  BSTR get() const { return value_; }

 private:
  BSTR value_;
};

std::string bytesOfArray(const SAFEARRAY* array) {
  if (array == nullptr || array->cDims != 1 || array->cbElements != 1) return std::string();
  const ULONG count = array->rgsabound[0].cElements;
  if (count == 0 || array->pvData == nullptr) return std::string();
  return std::string(static_cast<const char*>(array->pvData), count);
}

}  // namespace

std::string cimValueText(const VARIANT& value) {
  std::ostringstream text;
  switch (value.vt) {
    case VT_I4:
      text << value.lVal;
      return text.str();
    case VT_BSTR: {
      if (value.bstrVal == nullptr) return std::string();
      size_t length = 0;
      while (length < kMaxTextValue && value.bstrVal[length] != 0) ++length;
      const Win32WideString cut(value.bstrVal, length);
      return wideToUtf8(cut.c_str());
    }
    case VT_I1:
      // Streamed as a character: a value of 65 reads "A".
      text << value.cVal;
      return text.str();
    case VT_UI1:
      text << value.bVal;
      return text.str();
    case VT_UI2:
      text << value.uiVal;
      return text.str();
    case VT_ARRAY | VT_UI1:
      return bytesOfArray(value.parray);
    default:
      return std::string();
  }
}

uint32_t WinCim::queryWhere(char** fields, const char* whereClause, const char* className, int32_t fieldCount,
                            CimResult** out, const char* nameSpace) {
  uint32_t status = checkCimArguments(fields, className, fieldCount, true, whereClause);
  if (status != kCimSuccess) return status;
  if (out == nullptr) return kCimNullField;
  const std::string text = buildCimQueryText(fields, fieldCount, className, whereClause);
  return runQuery(text.c_str(), fields, fieldCount, out, nameSpace);
}

uint32_t WinCim::query(char** fields, const char* className, int32_t fieldCount, CimResult** out,
                       const char* nameSpace) {
  uint32_t status = checkCimArguments(fields, className, fieldCount, false, nullptr);
  if (status != kCimSuccess) return status;
  if (out == nullptr) return kCimNullField;
  const std::string text = buildCimQueryText(fields, fieldCount, className, nullptr);
  return runQuery(text.c_str(), fields, fieldCount, out, nameSpace);
}

uint32_t WinCim::initialiseCom() {
  comAlreadyInitialised = false;
  HRESULT result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  uint32_t status = kCimSuccess;
  if (result == RPC_E_CHANGED_MODE) {
    comAlreadyInitialised = true;
    status = kCimComAlreadyInitialised;
  } else if (FAILED(result)) {
    return kCimComInitFailed;
  }
  // Security is process-wide and can be set once: RPC_E_TOO_LATE means it
  // already was, which is as good.
  result = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
  if (FAILED(result) && result != RPC_E_TOO_LATE) {
    uninitialiseCom();
    return kCimSecurityFailed;
  }
  return status;
}

void WinCim::uninitialiseCom() {
  if (!comAlreadyInitialised) CoUninitialize();
}

uint32_t WinCim::connect(const char* nameSpace, IWbemLocator** locator, IWbemServices** services) {
  *locator = nullptr;
  *services = nullptr;
  const uint32_t status = initialiseCom();
  if (status != kCimSuccess && status != kCimComAlreadyInitialised) return status;

  void* made = nullptr;
  if (FAILED(CoCreateInstance(kWbemLocatorClassId, nullptr, CLSCTX_INPROC_SERVER, kWbemLocatorInterfaceId, &made)) ||
      made == nullptr) {
    uninitialiseCom();
    return kCimNoLocator;
  }
  *locator = static_cast<IWbemLocator*>(made);

  {
    OwnedBstr path(nameSpace != nullptr ? nameSpace : "");
    if (FAILED((*locator)->ConnectServer(path.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, services)) ||
        *services == nullptr) {
      *services = nullptr;
      disconnect(*locator, nullptr);
      *locator = nullptr;
      return kCimConnectFailed;
    }
  }

  if (FAILED(CoSetProxyBlanket(*services, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE))) {
    disconnect(*locator, *services);
    *locator = nullptr;
    *services = nullptr;
    return kCimProxyBlanketFailed;
  }
  return kCimSuccess;
}

void WinCim::disconnect(IWbemLocator* locator, IWbemServices* services) {
  if (services != nullptr) services->Release();
  if (locator != nullptr) locator->Release();
  uninitialiseCom();
}

uint32_t WinCim::runQuery(const char* queryText, char** fields, int32_t fieldCount, CimResult** out,
                          const char* nameSpace) {
  if (queryText == nullptr) return kCimNullQuery;
  IWbemLocator* locator = nullptr;
  IWbemServices* services = nullptr;
  uint32_t status = connect(nameSpace, &locator, &services);
  if (status != kCimSuccess) return status;

  IEnumWbemClassObject* rows = nullptr;
  {
    OwnedBstr language(WIN32_WIDE("WQL"));
    OwnedBstr text(queryText);
    const HRESULT result = services->ExecQuery(language.get(), text.get(),
                                               WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr, &rows);
    if (FAILED(result) || rows == nullptr) {
      rows = nullptr;
      status = kCimQueryFailed;
    }
  }
  if (rows != nullptr) {
    status = fetchRows(rows, fields, fieldCount, out);
    rows->Release();
  }
  disconnect(locator, services);
  return status;
}

uint32_t WinCim::fetchRows(IEnumWbemClassObject* rows, char** fields, int32_t fieldCount, CimResult** out) {
  auto result = std::make_unique<CimResult>();
  uint32_t stored = kCimSuccess;
  std::vector<Win32WideString> names;
  for (int32_t i = 0; i < fieldCount; ++i) names.push_back(utf8ToWide(fields[i]));

  for (;;) {
    IWbemClassObject* object = nullptr;
    ULONG returned = 0;
    rows->Next(static_cast<LONG>(WBEM_INFINITE), 1, &object, &returned);
    if (returned == 0) break;
    if (object == nullptr) {
      // A row without its object: the rows can't be trusted any further.
      stored = kCimReadFailed;
      break;
    }
    CimResult::Row row;
    for (const Win32WideString& name : names) {
      VARIANT value;
      VariantInit(&value);
      if (FAILED(object->Get(name.c_str(), 0, &value, nullptr, nullptr))) {
        // The walk goes on; the whole query fails at the end.
        stored = kCimReadFailed;
        row.emplace_back();
      } else {
        row.push_back(cimValueText(value));
      }
      VariantClear(&value);
    }
    object->Release();
    result->rows.push_back(std::move(row));
  }

  if (stored != kCimSuccess) {
    CimResult* partial = result.release();
    freeResult(&partial);
    return stored;
  }
  *out = result->rows.empty() ? nullptr : result.release();
  return kCimSuccess;
}

uint32_t WinCim::openClass(const char* nameSpace, const char* className, IWbemLocator** locator,
                           IWbemServices** services, IWbemClassObject** classObject) {
  if (className == nullptr) return kCimNullClass;
  if (locator == nullptr || services == nullptr || classObject == nullptr) return kCimNullField;
  *classObject = nullptr;
  const uint32_t status = connect(nameSpace, locator, services);
  if (status != kCimSuccess) return status;
  OwnedBstr path(className);
  if (FAILED((*services)->GetObject(path.get(), 0, nullptr, classObject, nullptr)) || *classObject == nullptr) {
    *classObject = nullptr;
    disconnect(*locator, *services);
    *locator = nullptr;
    *services = nullptr;
    return kCimReadFailed;
  }
  return kCimSuccess;
}

void WinCim::closeClass(IWbemLocator* locator, IWbemServices* services, IWbemClassObject* classObject) {
  if (classObject != nullptr) classObject->Release();
  disconnect(locator, services);
}
