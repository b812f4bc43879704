// The management-query service on Windows: COM and WMI. Each query connects,
// runs and disconnects; nothing is held between calls. The file-system tool
// also borrows the connection and a class object to call a method.
#pragma once

#include <string>

#include "system/cim.h"
#include "win32/win32.h"

class WinCim : public Cim {
 public:
  uint32_t queryWhere(char** fields, const char* whereClause, const char* className, int32_t fieldCount,
                      CimResult** out, const char* nameSpace) override;
  uint32_t query(char** fields, const char* className, int32_t fieldCount, CimResult** out,
                 const char* nameSpace) override;

  // Connects to `nameSpace` and fetches the class object of `className`.
  // On success the three objects are the caller's, to be handed back to
  // closeClass, and COM stays initialised on this thread until then. On
  // failure nothing is held: the status is that of the connection, 23 when
  // the class can't be fetched, 26 for a null class name, 25 for a null out
  // pointer.
  uint32_t openClass(const char* nameSpace, const char* className, IWbemLocator** locator,
                     IWbemServices** services, IWbemClassObject** classObject);
  // Releases what openClass gave, in reverse order, and undoes COM unless the
  // thread had it in another mode. Null pointers are passed over.
  void closeClass(IWbemLocator* locator, IWbemServices* services, IWbemClassObject* classObject);

  // Set by each connection when the thread had already chosen another
  // threading mode: the connection then goes on and leaves COM as it found it.
  bool comAlreadyInitialised = false;

 private:
  // COM set-up: 0, or 91 when the thread had another mode (go on), or 16/17.
  uint32_t initialiseCom();
  void uninitialiseCom();
  // Steps 1-4 of a connection; on failure everything made is undone.
  uint32_t connect(const char* nameSpace, IWbemLocator** locator, IWbemServices** services);
  void disconnect(IWbemLocator* locator, IWbemServices* services);
  uint32_t runQuery(const char* queryText, char** fields, int32_t fieldCount, CimResult** out,
                    const char* nameSpace);
  uint32_t fetchRows(IEnumWbemClassObject* rows, char** fields, int32_t fieldCount, CimResult** out);
};

// The text of one value as a query delivers it, by its variant type: VT_I4
// and VT_UI2 in decimal, VT_BSTR narrowed to UTF-8 (at most 500 characters),
// VT_I1 and VT_UI1 as the one character of that code, an array of VT_UI1 as
// its bytes; anything else, and a malformed array or null string, as the
// empty text.
std::string cimValueText(const VARIANT& value);

// The locator's class and interface identifiers.
extern const CLSID kWbemLocatorClassId;
extern const IID kWbemLocatorInterfaceId;
