// Non-Windows build: the COM, OLE automation and WMI declarations that the
// management queries use (objbase.h, oleauto.h and wbemcli.h on Windows), with
// the Windows x64 layouts and the documented order of every interface's
// methods, so that a class written against them runs unchanged on both builds.
// The simulated PC serves them (sim/windows/wmi*.cpp).
//
// `long` in the documented signatures is 32 bits on Windows; it is LONG here.
#pragma once

// Included by win32_types.h after the basic types.

using HRESULT = LONG;
using SCODE = LONG;
using OLECHAR = WCHAR;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;
// A BSTR points at the first character; the 32-bit byte length (without the
// terminating NUL) sits in the four bytes before it.
using BSTR = OLECHAR*;
using VARTYPE = USHORT;
using VARIANT_BOOL = int16_t;
using SHORT = int16_t;
using FLOAT = float;
using DOUBLE = double;
using DATE = double;
using CIMTYPE = LONG;
using PSECURITY_DESCRIPTOR = PVOID;
using RPC_AUTH_IDENTITY_HANDLE = void*;
using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFCLSID = const CLSID&;

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)

// --- Result codes (winerror.h and wbemcli.h values) ------------------------------

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005u);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154u);
constexpr HRESULT CO_E_NOTINITIALIZED = static_cast<HRESULT>(0x800401F0u);
constexpr HRESULT RPC_E_CHANGED_MODE = static_cast<HRESULT>(0x80010106u);
constexpr HRESULT RPC_E_TOO_LATE = static_cast<HRESULT>(0x80010119u);
constexpr HRESULT DISP_E_BADVARTYPE = static_cast<HRESULT>(0x80020008u);
constexpr HRESULT DISP_E_BADINDEX = static_cast<HRESULT>(0x8002000Bu);

constexpr HRESULT WBEM_S_NO_ERROR = 0;
constexpr HRESULT WBEM_S_FALSE = 1;
constexpr HRESULT WBEM_S_TIMEDOUT = 0x40004;
constexpr HRESULT WBEM_E_FAILED = static_cast<HRESULT>(0x80041001u);
constexpr HRESULT WBEM_E_NOT_FOUND = static_cast<HRESULT>(0x80041002u);
constexpr HRESULT WBEM_E_ACCESS_DENIED = static_cast<HRESULT>(0x80041003u);
constexpr HRESULT WBEM_E_INVALID_PARAMETER = static_cast<HRESULT>(0x80041008u);
constexpr HRESULT WBEM_E_INVALID_NAMESPACE = static_cast<HRESULT>(0x8004100Eu);
constexpr HRESULT WBEM_E_INVALID_CLASS = static_cast<HRESULT>(0x80041010u);
constexpr HRESULT WBEM_E_INVALID_QUERY = static_cast<HRESULT>(0x80041017u);
constexpr HRESULT WBEM_E_INVALID_QUERY_TYPE = static_cast<HRESULT>(0x80041018u);
constexpr HRESULT WBEM_E_NOT_SUPPORTED = static_cast<HRESULT>(0x8004100Cu);
constexpr HRESULT WBEM_E_TYPE_MISMATCH = static_cast<HRESULT>(0x80041005u);
constexpr HRESULT WBEM_E_INVALID_METHOD = static_cast<HRESULT>(0x8004102Eu);

// --- COM set-up ---------------------------------------------------------------------

constexpr DWORD COINIT_MULTITHREADED = 0x0;
constexpr DWORD COINIT_APARTMENTTHREADED = 0x2;
constexpr DWORD CLSCTX_INPROC_SERVER = 0x1;

constexpr DWORD RPC_C_AUTHN_NONE = 0;
constexpr DWORD RPC_C_AUTHN_WINNT = 10;
constexpr DWORD RPC_C_AUTHZ_NONE = 0;
constexpr DWORD RPC_C_AUTHN_LEVEL_DEFAULT = 0;
constexpr DWORD RPC_C_AUTHN_LEVEL_CALL = 3;
constexpr DWORD RPC_C_IMP_LEVEL_IMPERSONATE = 3;
constexpr DWORD EOAC_NONE = 0;

// --- Variant types --------------------------------------------------------------------

constexpr VARTYPE VT_EMPTY = 0;
constexpr VARTYPE VT_NULL = 1;
constexpr VARTYPE VT_I2 = 2;
constexpr VARTYPE VT_I4 = 3;
constexpr VARTYPE VT_R4 = 4;
constexpr VARTYPE VT_R8 = 5;
constexpr VARTYPE VT_BSTR = 8;
constexpr VARTYPE VT_DISPATCH = 9;
constexpr VARTYPE VT_ERROR = 10;
constexpr VARTYPE VT_BOOL = 11;
constexpr VARTYPE VT_VARIANT = 12;
constexpr VARTYPE VT_UNKNOWN = 13;
constexpr VARTYPE VT_I1 = 16;
constexpr VARTYPE VT_UI1 = 17;
constexpr VARTYPE VT_UI2 = 18;
constexpr VARTYPE VT_UI4 = 19;
constexpr VARTYPE VT_I8 = 20;
constexpr VARTYPE VT_UI8 = 21;
constexpr VARTYPE VT_INT = 22;
constexpr VARTYPE VT_UINT = 23;
constexpr VARTYPE VT_ARRAY = 0x2000;
constexpr VARTYPE VT_BYREF = 0x4000;

constexpr VARIANT_BOOL VARIANT_TRUE = -1;
constexpr VARIANT_BOOL VARIANT_FALSE = 0;

// --- WMI flags and property types -------------------------------------------------------

constexpr LONG WBEM_FLAG_RETURN_IMMEDIATELY = 0x10;
constexpr LONG WBEM_FLAG_FORWARD_ONLY = 0x20;
constexpr LONG WBEM_INFINITE = -1;  // 0xFFFFFFFF as the 32-bit time-out

constexpr CIMTYPE CIM_ILLEGAL = 0xFFF;
constexpr CIMTYPE CIM_EMPTY = 0;
constexpr CIMTYPE CIM_SINT16 = 2;
constexpr CIMTYPE CIM_SINT32 = 3;
constexpr CIMTYPE CIM_REAL32 = 4;
constexpr CIMTYPE CIM_REAL64 = 5;
constexpr CIMTYPE CIM_STRING = 8;
constexpr CIMTYPE CIM_BOOLEAN = 11;
constexpr CIMTYPE CIM_OBJECT = 13;
constexpr CIMTYPE CIM_SINT8 = 16;
constexpr CIMTYPE CIM_UINT8 = 17;
constexpr CIMTYPE CIM_UINT16 = 18;
constexpr CIMTYPE CIM_UINT32 = 19;
constexpr CIMTYPE CIM_SINT64 = 20;
constexpr CIMTYPE CIM_UINT64 = 21;
constexpr CIMTYPE CIM_DATETIME = 101;
constexpr CIMTYPE CIM_REFERENCE = 102;
constexpr CIMTYPE CIM_CHAR16 = 103;
constexpr CIMTYPE CIM_FLAG_ARRAY = 0x2000;

// --- Safe arrays and variants -------------------------------------------------------------

// 0 cElements 4 lLbound; 8 bytes.
struct SAFEARRAYBOUND {
  ULONG cElements;
  LONG lLbound;
};

// 0 cDims 2 fFeatures 4 cbElements 8 cLocks 16 pvData 24 rgsabound; 32 bytes
// for one dimension (more dimensions run on past the record).
struct SAFEARRAY {
  USHORT cDims;
  USHORT fFeatures;
  ULONG cbElements;
  ULONG cLocks;
  PVOID pvData;
  SAFEARRAYBOUND rgsabound[1];
};
using LPSAFEARRAY = SAFEARRAY*;

class IUnknown;
class IDispatch;

// 0 vt 2..7 reserved 8 value; 24 bytes (the value part is as wide as the
// record form's two pointers). The nameless members read as on Windows:
// `v.vt`, `v.bstrVal`, `v.parray`.
struct VARIANT {
  union {
    struct {
      VARTYPE vt;
      WORD wReserved1;
      WORD wReserved2;
      WORD wReserved3;
      union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        FLOAT fltVal;
        DOUBLE dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        DATE date;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
        SAFEARRAY* parray;
        BYTE* pbVal;
        PVOID byref;
        CHAR cVal;
        USHORT uiVal;
        ULONG ulVal;
        ULONGLONG ullVal;
        INT intVal;
        UINT uintVal;
        struct {
          PVOID pvRecord;
          PVOID pRecInfo;
        } record;
      };
    };
    BYTE decimalBytes[16];
  };
};
using VARIANTARG = VARIANT;
using LPVARIANT = VARIANT*;

// --- Interfaces, in the documented order of their methods ----------------------------------

class IWbemContext;
class IWbemCallResult;
class IWbemObjectSink;
class IWbemQualifierSet;
struct SOLE_AUTHENTICATION_SERVICE;

class IUnknown {
 public:
  virtual HRESULT QueryInterface(REFIID riid, void** object) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;
};

class IWbemClassObject;
class IEnumWbemClassObject;
class IWbemServices;

class IWbemClassObject : public IUnknown {
 public:
  virtual HRESULT GetQualifierSet(IWbemQualifierSet** qualifiers) = 0;
  virtual HRESULT Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type, LONG* flavor) = 0;
  virtual HRESULT Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) = 0;
  virtual HRESULT Delete(LPCWSTR name) = 0;
  virtual HRESULT GetNames(LPCWSTR qualifierName, LONG flags, VARIANT* qualifierValue, SAFEARRAY** names) = 0;
  virtual HRESULT BeginEnumeration(LONG enumFlags) = 0;
  virtual HRESULT Next(LONG flags, BSTR* name, VARIANT* value, CIMTYPE* type, LONG* flavor) = 0;
  virtual HRESULT EndEnumeration() = 0;
  virtual HRESULT GetPropertyQualifierSet(LPCWSTR property, IWbemQualifierSet** qualifiers) = 0;
  virtual HRESULT Clone(IWbemClassObject** copy) = 0;
  virtual HRESULT GetObjectText(LONG flags, BSTR* text) = 0;
  virtual HRESULT SpawnDerivedClass(LONG flags, IWbemClassObject** newClass) = 0;
  virtual HRESULT SpawnInstance(LONG flags, IWbemClassObject** newInstance) = 0;
  virtual HRESULT CompareTo(LONG flags, IWbemClassObject* other) = 0;
  virtual HRESULT GetPropertyOrigin(LPCWSTR name, BSTR* className) = 0;
  virtual HRESULT InheritsFrom(LPCWSTR ancestor) = 0;
  virtual HRESULT GetMethod(LPCWSTR name, LONG flags, IWbemClassObject** inSignature,
                            IWbemClassObject** outSignature) = 0;
  virtual HRESULT PutMethod(LPCWSTR name, LONG flags, IWbemClassObject* inSignature,
                            IWbemClassObject* outSignature) = 0;
  virtual HRESULT DeleteMethod(LPCWSTR name) = 0;
  virtual HRESULT BeginMethodEnumeration(LONG enumFlags) = 0;
  virtual HRESULT NextMethod(LONG flags, BSTR* name, IWbemClassObject** inSignature,
                             IWbemClassObject** outSignature) = 0;
  virtual HRESULT EndMethodEnumeration() = 0;
  virtual HRESULT GetMethodQualifierSet(LPCWSTR method, IWbemQualifierSet** qualifiers) = 0;
  virtual HRESULT GetMethodOrigin(LPCWSTR methodName, BSTR* className) = 0;
};

class IEnumWbemClassObject : public IUnknown {
 public:
  virtual HRESULT Reset() = 0;
  virtual HRESULT Next(LONG timeout, ULONG count, IWbemClassObject** objects, ULONG* returned) = 0;
  virtual HRESULT NextAsync(ULONG count, IWbemObjectSink* sink) = 0;
  virtual HRESULT Clone(IEnumWbemClassObject** copy) = 0;
  virtual HRESULT Skip(LONG timeout, ULONG count) = 0;
};

class IWbemServices : public IUnknown {
 public:
  virtual HRESULT OpenNamespace(const BSTR nameSpace, LONG flags, IWbemContext* context,
                                IWbemServices** workingNamespace, IWbemCallResult** result) = 0;
  virtual HRESULT CancelAsyncCall(IWbemObjectSink* sink) = 0;
  virtual HRESULT QueryObjectSink(LONG flags, IWbemObjectSink** responseHandler) = 0;
  virtual HRESULT GetObject(const BSTR objectPath, LONG flags, IWbemContext* context, IWbemClassObject** object,
                            IWbemCallResult** callResult) = 0;
  virtual HRESULT GetObjectAsync(const BSTR objectPath, LONG flags, IWbemContext* context,
                                 IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT PutClass(IWbemClassObject* object, LONG flags, IWbemContext* context,
                           IWbemCallResult** callResult) = 0;
  virtual HRESULT PutClassAsync(IWbemClassObject* object, LONG flags, IWbemContext* context,
                                IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT DeleteClass(const BSTR className, LONG flags, IWbemContext* context,
                              IWbemCallResult** callResult) = 0;
  virtual HRESULT DeleteClassAsync(const BSTR className, LONG flags, IWbemContext* context,
                                   IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT CreateClassEnum(const BSTR superclass, LONG flags, IWbemContext* context,
                                  IEnumWbemClassObject** enumerator) = 0;
  virtual HRESULT CreateClassEnumAsync(const BSTR superclass, LONG flags, IWbemContext* context,
                                       IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT PutInstance(IWbemClassObject* instance, LONG flags, IWbemContext* context,
                              IWbemCallResult** callResult) = 0;
  virtual HRESULT PutInstanceAsync(IWbemClassObject* instance, LONG flags, IWbemContext* context,
                                   IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT DeleteInstance(const BSTR objectPath, LONG flags, IWbemContext* context,
                                 IWbemCallResult** callResult) = 0;
  virtual HRESULT DeleteInstanceAsync(const BSTR objectPath, LONG flags, IWbemContext* context,
                                      IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT CreateInstanceEnum(const BSTR filter, LONG flags, IWbemContext* context,
                                     IEnumWbemClassObject** enumerator) = 0;
  virtual HRESULT CreateInstanceEnumAsync(const BSTR filter, LONG flags, IWbemContext* context,
                                          IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT ExecQuery(const BSTR queryLanguage, const BSTR query, LONG flags, IWbemContext* context,
                            IEnumWbemClassObject** enumerator) = 0;
  virtual HRESULT ExecQueryAsync(const BSTR queryLanguage, const BSTR query, LONG flags, IWbemContext* context,
                                 IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT ExecNotificationQuery(const BSTR queryLanguage, const BSTR query, LONG flags,
                                        IWbemContext* context, IEnumWbemClassObject** enumerator) = 0;
  virtual HRESULT ExecNotificationQueryAsync(const BSTR queryLanguage, const BSTR query, LONG flags,
                                             IWbemContext* context, IWbemObjectSink* responseHandler) = 0;
  virtual HRESULT ExecMethod(const BSTR objectPath, const BSTR methodName, LONG flags, IWbemContext* context,
                             IWbemClassObject* inParams, IWbemClassObject** outParams,
                             IWbemCallResult** callResult) = 0;
  virtual HRESULT ExecMethodAsync(const BSTR objectPath, const BSTR methodName, LONG flags,
                                  IWbemContext* context, IWbemClassObject* inParams,
                                  IWbemObjectSink* responseHandler) = 0;
};

class IWbemLocator : public IUnknown {
 public:
  virtual HRESULT ConnectServer(const BSTR networkResource, const BSTR user, const BSTR password,
                                const BSTR locale, LONG securityFlags, const BSTR authority, IWbemContext* context,
                                IWbemServices** nameSpace) = 0;
};

// --- Functions ------------------------------------------------------------------------------

HRESULT CoInitializeEx(LPVOID reserved, DWORD coInit);
void CoUninitialize();
HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR securityDescriptor, LONG authServiceCount,
                             SOLE_AUTHENTICATION_SERVICE* authServices, void* reserved1, DWORD authnLevel,
                             DWORD impLevel, void* authList, DWORD capabilities, void* reserved3);
HRESULT CoCreateInstance(REFCLSID classId, IUnknown* outer, DWORD classContext, REFIID interfaceId,
                         LPVOID* object);
HRESULT CoSetProxyBlanket(IUnknown* proxy, DWORD authnService, DWORD authzService, OLECHAR* serverPrincipalName,
                          DWORD authnLevel, DWORD impLevel, RPC_AUTH_IDENTITY_HANDLE authInfo, DWORD capabilities);

BSTR SysAllocString(const OLECHAR* text);
BSTR SysAllocStringLen(const OLECHAR* text, UINT length);
void SysFreeString(BSTR text);
UINT SysStringLen(BSTR text);

void VariantInit(VARIANTARG* value);
HRESULT VariantClear(VARIANTARG* value);

SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG elements);
HRESULT SafeArrayPutElement(SAFEARRAY* array, LONG* indices, void* value);
HRESULT SafeArrayGetElement(SAFEARRAY* array, LONG* indices, void* value);
HRESULT SafeArrayDestroy(SAFEARRAY* array);
