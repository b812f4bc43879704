// The state behind the simulated COM runtime and WMI service: the threading
// mode of COM, what is live, the calls made, the description's "wmi" key,
// and the classes built from the installed machine. Internal to sim/windows/.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sim/machine.h"
#include "win32/win32.h"

namespace sim {
namespace windows {

class Face;

// One property value as the service keeps it; it becomes a VARIANT on Get.
struct WmiValue {
  enum class Kind { Null, I4, Bstr, Bool, I1, UI1, UI2, R8, Bytes, Strings };
  Kind kind = Kind::Null;
  int64_t number = 0;
  double real = 0;
  std::string text;
  std::vector<uint8_t> bytes;
  std::vector<std::string> strings;

  static WmiValue i4(int64_t v) {
    WmiValue value;
    value.kind = Kind::I4;
    value.number = v;
    return value;
  }
  static WmiValue bstr(const std::string& v) {
    WmiValue value;
    value.kind = Kind::Bstr;
    value.text = v;
    return value;
  }
};

struct WmiProperty {
  std::string name;
  WmiValue value;
  // The type a parameter takes; Null takes any.
  WmiValue::Kind declared = WmiValue::Kind::Null;
};

// An instance, a class's own object, or a method's parameters.
struct WmiObject {
  std::string className;
  std::vector<WmiProperty> properties;

  // Lookups ignore case, as WMI's names do. Null when absent.
  WmiProperty* find(const std::string& name);
  const WmiProperty* find(const std::string& name) const;
};

struct WmiMethod {
  std::string name;
  WmiObject in;   // class "__PARAMETERS", values null
  WmiObject out;
};

struct WmiClass {
  std::string name;
  std::vector<std::string> propertyNames;
  std::vector<WmiMethod> methods;
  std::vector<WmiObject> instances;

  const WmiMethod* findMethod(const std::string& method) const;
  bool hasProperty(const std::string& property) const;
};

// An instance the description adds, with its namespace.
struct DescribedObject {
  std::string nameSpace;  // upper case, without a leading "\\.\"
  WmiObject object;
};

struct ManagementState {
  bool securitySet = false;
  int liveObjects = 0;
  int liveStrings = 0;
  int liveArrays = 0;
  std::vector<std::string> scheduled;
  std::vector<std::string> calls;
  // Calls named by the description's "wmi.failures": "ExecQuery", or
  // "Get:Size" for the one property.
  std::vector<std::string> failures;
  std::vector<DescribedObject> described;
};

ManagementState& management();
// Back to a fresh process: no checks scheduled, nothing recorded, security
// not yet set (Face::reset).
void resetManagement();
// Reads the description's "wmi" key (Face::install). False with *error
// naming the field when it is wrong.
bool buildManagement(Face& face, Machine& machine, std::string* error);

void noteCall(const std::string& line);
// True when the description makes `call` fail (or `call:detail`).
bool callFails(const std::string& call, const std::string& detail = std::string());

// Namespace names are compared in upper case without a leading "\\.\".
std::string canonicalNamespace(const std::string& name);
bool namespaceExists(const std::string& nameSpace);
// A class of a namespace as the machine stands now, instances and all;
// false when the namespace has no such class.
bool findClass(const std::string& nameSpace, const std::string& className, WmiClass* out);

// VARIANT conversions. toVariant makes new strings and arrays for the
// caller; fromVariant copies.
HRESULT toVariant(const WmiValue& value, VARIANT* out);
bool fromVariant(const VARIANT& value, WmiValue* out);
CIMTYPE cimTypeOf(const WmiValue& value);

// A static method of a class, run on its parameters.
HRESULT runMethod(const std::string& nameSpace, const std::string& className, const std::string& method,
                  const WmiObject& in, WmiObject* out);

// The COM objects of the service (wmi.cpp). Each comes with one reference.
IWbemLocator* newLocator();

}  // namespace windows
}  // namespace sim
