// What the simulated WMI service knows: the namespaces, the classes built
// from the installed machine's volumes and disks, the instances the
// description's "wmi" key adds, value conversion to and from VARIANT, and the
// static method Win32_LogicalDisk.ScheduleAutoChk.
#include <algorithm>
#include <cstdio>
#include <limits>

#include "sim/description_reader.h"
#include "sim/windows/face_state.h"
#include "sim/windows/wmi.h"
#include "sim/windows/wmi_state.h"

namespace sim {
namespace windows {

namespace {

constexpr const char* kCimv2 = "ROOT\\CIMV2";
constexpr const char* kLogicalDisk = "Win32_LogicalDisk";
constexpr const char* kDiskDrive = "Win32_DiskDrive";

// The namespaces a Windows PC has for storage, whatever the description adds.
const char* const kNamespaces[] = {"ROOT\\CIMV2", "ROOT\\WMI", "ROOT\\DEFAULT", "ROOT\\MICROSOFT\\WINDOWS\\STORAGE"};

// Calls the description may make fail.
const char* const kFailingCalls[] = {"CoInitializeEx", "CoInitializeSecurity", "CoCreateInstance", "ConnectServer",
                                     "CoSetProxyBlanket", "ExecQuery", "NextWithoutObject", "Get", "GetObject",
                                     "GetMethod", "SpawnInstance", "Put", "ExecMethod"};

// Win32_LogicalDisk.ScheduleAutoChk return values.
constexpr int64_t kAutoChkScheduled = 0;
constexpr int64_t kAutoChkRemovableDrive = 2;
constexpr int64_t kAutoChkNotRoot = 3;
constexpr int64_t kAutoChkUnknownDrive = 4;

// Win32_LogicalDisk.DriveType and MediaType.
constexpr int64_t kDriveRemovable = 2;
constexpr int64_t kDriveFixed = 3;
constexpr int64_t kMediaRemovable = 11;
constexpr int64_t kMediaFixedDisk = 12;

std::string upperAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

void addProperty(WmiObject& object, const std::string& name, WmiValue value) {
  WmiProperty property;
  property.name = name;
  property.value = std::move(value);
  object.properties.push_back(std::move(property));
}

bool volumeIsRemovable(Face& face, const Volume& volume) {
  Machine* machine = face.machine();
  if (machine == nullptr || volume.extents.empty()) return false;
  const size_t disk = volume.extents.front().disk;
  return disk < machine->disks.size() && machine->disks[disk].removableMedia;
}

WmiClass logicalDiskClass(Face& face) {
  WmiClass cls;
  cls.name = kLogicalDisk;
  cls.propertyNames = {"DeviceID",  "Caption",   "Name",      "VolumeName", "FileSystem",
                       "Size",      "FreeSpace", "DriveType", "MediaType",  "VolumeSerialNumber"};
  WmiMethod schedule;
  schedule.name = "ScheduleAutoChk";
  schedule.in.className = "__PARAMETERS";
  WmiProperty disks;
  disks.name = "LogicalDisk";
  disks.declared = WmiValue::Kind::Strings;
  schedule.in.properties.push_back(disks);
  schedule.out.className = "__PARAMETERS";
  WmiProperty result;
  result.name = "ReturnValue";
  result.declared = WmiValue::Kind::I4;
  schedule.out.properties.push_back(result);
  cls.methods.push_back(schedule);

  std::vector<std::pair<char, const Volume*>> letters;
  for (const auto& volume : face.volumes()) {
    for (char letter : volume->letters) letters.emplace_back(letter, volume.get());
  }
  std::sort(letters.begin(), letters.end(),
            [](const std::pair<char, const Volume*>& a, const std::pair<char, const Volume*>& b) {
              return a.first < b.first;
            });
  for (const auto& entry : letters) {
    const Volume& volume = *entry.second;
    const std::string id = std::string(1, entry.first) + ":";
    const bool removable = volumeIsRemovable(face, volume);
    char serial[9];
    std::snprintf(serial, sizeof(serial), "%08X", static_cast<unsigned>(volume.serial));
    WmiObject instance;
    instance.className = kLogicalDisk;
    addProperty(instance, "DeviceID", WmiValue::bstr(id));
    addProperty(instance, "Caption", WmiValue::bstr(id));
    addProperty(instance, "Name", WmiValue::bstr(id));
    addProperty(instance, "VolumeName", WmiValue::bstr(volume.label));
    addProperty(instance, "FileSystem", WmiValue::bstr(volume.fileSystem));
    // 64-bit numbers travel as decimal text in WMI.
    addProperty(instance, "Size", WmiValue::bstr(std::to_string(volume.totalBytes())));
    addProperty(instance, "FreeSpace",
                WmiValue::bstr(std::to_string(volume.freeClusters() * static_cast<uint64_t>(volume.clusterSize))));
    addProperty(instance, "DriveType", WmiValue::i4(removable ? kDriveRemovable : kDriveFixed));
    addProperty(instance, "MediaType", WmiValue::i4(removable ? kMediaRemovable : kMediaFixedDisk));
    addProperty(instance, "VolumeSerialNumber", WmiValue::bstr(serial));
    cls.instances.push_back(std::move(instance));
  }
  return cls;
}

std::string interfaceTypeOf(uint32_t busType) {
  switch (busType) {
    case kBusTypeAta:
    case kBusTypeSata:
      return "IDE";
    case kBusTypeUsb:
      return "USB";
    default:
      return "SCSI";
  }
}

WmiClass diskDriveClass(Face& face) {
  WmiClass cls;
  cls.name = kDiskDrive;
  cls.propertyNames = {"DeviceID",      "Index",     "Model", "SerialNumber",  "FirmwareRevision",
                       "InterfaceType", "MediaType", "Size",  "BytesPerSector"};
  Machine* machine = face.machine();
  if (machine == nullptr) return cls;
  for (size_t i = 0; i < machine->disks.size(); ++i) {
    const Disk& disk = machine->disks[i];
    std::string model = disk.productId;
    if (!disk.vendorId.empty() && lowerAscii(disk.vendorId) != "ata") model = disk.vendorId + " " + disk.productId;
    WmiObject instance;
    instance.className = kDiskDrive;
    addProperty(instance, "DeviceID", WmiValue::bstr("\\\\.\\PHYSICALDRIVE" + std::to_string(i)));
    addProperty(instance, "Index", WmiValue::i4(static_cast<int64_t>(i)));
    addProperty(instance, "Model", WmiValue::bstr(model));
    addProperty(instance, "SerialNumber", WmiValue::bstr(disk.serialNumber));
    addProperty(instance, "FirmwareRevision", WmiValue::bstr(disk.productRevision));
    addProperty(instance, "InterfaceType", WmiValue::bstr(interfaceTypeOf(disk.busType)));
    addProperty(instance, "MediaType",
                WmiValue::bstr(disk.removableMedia ? "Removable Media" : "Fixed hard disk media"));
    addProperty(instance, "Size", WmiValue::bstr(disk.media ? std::to_string(disk.media->byteSize()) : "0"));
    addProperty(instance, "BytesPerSector", WmiValue::i4(disk.media ? disk.media->sectorSize() : 512));
    cls.instances.push_back(std::move(instance));
  }
  return cls;
}

// A typed value of the description: {"vt": "UI2", "value": 513}.
bool readTypedValue(const nlohmann::json& described, const std::string& path, WmiValue* out, std::string* error) {
  auto reject = [&](const std::string& where, const std::string& reason) {
    *error = where + ": " + reason;
    return false;
  };
  if (!described.contains("vt") || !described["vt"].is_string()) {
    return reject(path + ".vt", "expected one of \"I4\", \"BSTR\", \"I1\", \"UI1\", \"UI2\", \"BOOL\", \"R8\", "
                                "\"UI1[]\", \"BSTR[]\", \"NULL\"");
  }
  for (const auto& item : described.items()) {
    if (item.key() != "vt" && item.key() != "value") return reject(path + "." + item.key(), "unknown key");
  }
  const std::string vt = upperAscii(described["vt"].get<std::string>());
  const std::string valuePath = path + ".value";
  if (vt == "NULL") {
    out->kind = WmiValue::Kind::Null;
    return true;
  }
  if (!described.contains("value")) return reject(valuePath, "missing");
  const nlohmann::json& value = described["value"];
  struct Range {
    const char* name;
    WmiValue::Kind kind;
    int64_t low;
    int64_t high;
  };
  static const Range kRanges[] = {
      {"I4", WmiValue::Kind::I4, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()},
      {"I1", WmiValue::Kind::I1, -128, 127},
      {"UI1", WmiValue::Kind::UI1, 0, 255},
      {"UI2", WmiValue::Kind::UI2, 0, 65535},
  };
  for (const Range& range : kRanges) {
    if (vt != range.name) continue;
    if (!value.is_number_integer()) return reject(valuePath, "expected an integer");
    const int64_t number = value.get<int64_t>();
    if (number < range.low || number > range.high) {
      return reject(valuePath, "must be from " + std::to_string(range.low) + " to " + std::to_string(range.high));
    }
    out->kind = range.kind;
    out->number = number;
    return true;
  }
  if (vt == "BSTR") {
    if (!value.is_string()) return reject(valuePath, "expected a string");
    *out = WmiValue::bstr(value.get<std::string>());
    return true;
  }
  if (vt == "BOOL") {
    if (!value.is_boolean()) return reject(valuePath, "expected true or false");
    out->kind = WmiValue::Kind::Bool;
    out->number = value.get<bool>() ? 1 : 0;
    return true;
  }
  if (vt == "R8") {
    if (!value.is_number()) return reject(valuePath, "expected a number");
    out->kind = WmiValue::Kind::R8;
    out->real = value.get<double>();
    return true;
  }
  if (vt == "UI1[]" || vt == "BSTR[]") {
    if (!value.is_array()) return reject(valuePath, "expected a list");
    out->kind = vt == "UI1[]" ? WmiValue::Kind::Bytes : WmiValue::Kind::Strings;
    for (size_t i = 0; i < value.size(); ++i) {
      const nlohmann::json& element = value[i];
      const std::string at = valuePath + "[" + std::to_string(i) + "]";
      if (out->kind == WmiValue::Kind::Bytes) {
        if (!element.is_number_unsigned() || element.get<uint64_t>() > 255) return reject(at, "expected a byte");
        out->bytes.push_back(static_cast<uint8_t>(element.get<uint64_t>()));
      } else {
        if (!element.is_string()) return reject(at, "expected a string");
        out->strings.push_back(element.get<std::string>());
      }
    }
    return true;
  }
  return reject(path + ".vt", "unknown variant type \"" + described["vt"].get<std::string>() + "\"");
}

bool readValue(const nlohmann::json& value, const std::string& path, WmiValue* out, std::string* error) {
  if (value.is_string()) {
    *out = WmiValue::bstr(value.get<std::string>());
  } else if (value.is_boolean()) {
    out->kind = WmiValue::Kind::Bool;
    out->number = value.get<bool>() ? 1 : 0;
  } else if (value.is_null()) {
    out->kind = WmiValue::Kind::Null;
  } else if (value.is_number_integer()) {
    const int64_t number = value.get<int64_t>();
    if (number < std::numeric_limits<int32_t>::min() || number > std::numeric_limits<int32_t>::max()) {
      *error = path + ": beyond 32 bits; WMI gives 64-bit numbers as text, so write it as a string";
      return false;
    }
    *out = WmiValue::i4(number);
  } else if (value.is_number()) {
    out->kind = WmiValue::Kind::R8;
    out->real = value.get<double>();
  } else if (value.is_object()) {
    return readTypedValue(value, path, out, error);
  } else {
    *error = path + ": expected a string, number, boolean, null or {\"vt\", \"value\"}";
    return false;
  }
  return true;
}

bool readObjects(const nlohmann::json& list, std::vector<DescribedObject>* out, std::string* error) {
  for (size_t i = 0; i < list.size(); ++i) {
    const std::string path = "wmi.objects[" + std::to_string(i) + "]";
    if (!list[i].is_object()) {
      *error = path + ": expected an object";
      return false;
    }
    DescriptionReader r(list[i], path, error);
    DescribedObject described;
    std::string nameSpace;
    r.string("namespace", &nameSpace, 256);
    r.require("namespace");
    r.string("class", &described.object.className, 256);
    r.require("class");
    const nlohmann::json* properties = nullptr;
    if (r.object("properties", &properties)) {
      for (const auto& item : properties->items()) {
        WmiProperty property;
        property.name = item.key();
        if (!readValue(item.value(), path + ".properties." + item.key(), &property.value, error)) return false;
        described.object.properties.push_back(std::move(property));
      }
    }
    if (!r.finish()) return false;
    described.nameSpace = canonicalNamespace(nameSpace);
    out->push_back(std::move(described));
  }
  return true;
}

}  // namespace

WmiProperty* WmiObject::find(const std::string& name) {
  const std::string wanted = lowerAscii(name);
  for (WmiProperty& property : properties) {
    if (lowerAscii(property.name) == wanted) return &property;
  }
  return nullptr;
}

const WmiProperty* WmiObject::find(const std::string& name) const {
  return const_cast<WmiObject*>(this)->find(name);
}

const WmiMethod* WmiClass::findMethod(const std::string& method) const {
  for (const WmiMethod& entry : methods) {
    if (lowerAscii(entry.name) == lowerAscii(method)) return &entry;
  }
  return nullptr;
}

bool WmiClass::hasProperty(const std::string& property) const {
  for (const std::string& name : propertyNames) {
    if (lowerAscii(name) == lowerAscii(property)) return true;
  }
  return false;
}

ManagementState& management() {
  static ManagementState state;
  return state;
}

void resetManagement() { management() = ManagementState(); }

bool buildManagement(Face&, Machine& machine, std::string* error) {
  ManagementState& state = management();
  const auto it = machine.description.find("wmi");
  if (it == machine.description.end()) return true;
  if (!it->is_object()) {
    if (error) *error = "wmi: expected an object";
    return false;
  }
  std::string reason;
  DescriptionReader r(*it, "wmi", &reason);
  const nlohmann::json* failures = nullptr;
  std::vector<std::string> failing;
  if (r.array("failures", &failures)) {
    for (size_t i = 0; i < failures->size() && reason.empty(); ++i) {
      const nlohmann::json& entry = (*failures)[i];
      const std::string path = "wmi.failures[" + std::to_string(i) + "]";
      if (!entry.is_string()) {
        reason = path + ": expected the name of a call such as \"ExecQuery\" or \"Get:Size\"";
        break;
      }
      const std::string text = entry.get<std::string>();
      const std::string call = text.substr(0, text.find(':'));
      bool known = false;
      for (const char* name : kFailingCalls) known = known || call == name;
      if (!known) reason = path + ": unknown call \"" + call + "\"";
      failing.push_back(text);
    }
  }
  const nlohmann::json* objects = nullptr;
  std::vector<DescribedObject> described;
  if (reason.empty() && r.array("objects", &objects)) readObjects(*objects, &described, &reason);
  if (reason.empty()) r.finish();
  if (!reason.empty()) {
    if (error) *error = reason;
    return false;
  }
  state.failures = std::move(failing);
  state.described = std::move(described);
  return true;
}

void noteCall(const std::string& line) { management().calls.push_back(line); }

bool callFails(const std::string& call, const std::string& detail) {
  for (const std::string& entry : management().failures) {
    if (entry == call) return true;
    if (!detail.empty() && lowerAscii(entry) == lowerAscii(call + ":" + detail)) return true;
  }
  return false;
}

std::string canonicalNamespace(const std::string& name) {
  std::string text = upperAscii(name);
  for (char& c : text) {
    if (c == '/') c = '\\';
  }
  if (text.compare(0, 4, "\\\\.\\") == 0) text.erase(0, 4);
  return text;
}

bool namespaceExists(const std::string& nameSpace) {
  const std::string wanted = canonicalNamespace(nameSpace);
  for (const char* known : kNamespaces) {
    if (wanted == known) return true;
  }
  for (const DescribedObject& object : management().described) {
    if (object.nameSpace == wanted) return true;
  }
  return false;
}

bool findClass(const std::string& nameSpace, const std::string& className, WmiClass* out) {
  const std::string space = canonicalNamespace(nameSpace);
  const std::string wanted = lowerAscii(className);
  Face& face = Face::instance();
  WmiClass cls;
  bool found = false;
  if (space == kCimv2 && wanted == lowerAscii(kLogicalDisk)) {
    cls = logicalDiskClass(face);
    found = true;
  } else if (space == kCimv2 && wanted == lowerAscii(kDiskDrive)) {
    cls = diskDriveClass(face);
    found = true;
  }
  for (const DescribedObject& described : management().described) {
    if (described.nameSpace != space || lowerAscii(described.object.className) != wanted) continue;
    if (!found) cls.name = described.object.className;
    found = true;
    for (const WmiProperty& property : described.object.properties) {
      if (!cls.hasProperty(property.name)) cls.propertyNames.push_back(property.name);
    }
    cls.instances.push_back(described.object);
  }
  if (found) *out = std::move(cls);
  return found;
}

CIMTYPE cimTypeOf(const WmiValue& value) {
  switch (value.kind) {
    case WmiValue::Kind::I4:
      return CIM_SINT32;
    case WmiValue::Kind::Bstr:
      return CIM_STRING;
    case WmiValue::Kind::Bool:
      return CIM_BOOLEAN;
    case WmiValue::Kind::I1:
      return CIM_SINT8;
    case WmiValue::Kind::UI1:
      return CIM_UINT8;
    case WmiValue::Kind::UI2:
      return CIM_UINT16;
    case WmiValue::Kind::R8:
      return CIM_REAL64;
    case WmiValue::Kind::Bytes:
      return CIM_UINT8 | CIM_FLAG_ARRAY;
    case WmiValue::Kind::Strings:
      return CIM_STRING | CIM_FLAG_ARRAY;
    default:
      return CIM_EMPTY;
  }
}

HRESULT toVariant(const WmiValue& value, VARIANT* out) {
  VariantInit(out);
  switch (value.kind) {
    case WmiValue::Kind::Null:
      out->vt = VT_NULL;
      return S_OK;
    case WmiValue::Kind::I4:
      out->vt = VT_I4;
      out->lVal = static_cast<LONG>(value.number);
      return S_OK;
    case WmiValue::Kind::Bool:
      out->vt = VT_BOOL;
      out->boolVal = value.number != 0 ? VARIANT_TRUE : VARIANT_FALSE;
      return S_OK;
    case WmiValue::Kind::I1:
      out->vt = VT_I1;
      out->cVal = static_cast<CHAR>(value.number);
      return S_OK;
    case WmiValue::Kind::UI1:
      out->vt = VT_UI1;
      out->bVal = static_cast<BYTE>(value.number);
      return S_OK;
    case WmiValue::Kind::UI2:
      out->vt = VT_UI2;
      out->uiVal = static_cast<USHORT>(value.number);
      return S_OK;
    case WmiValue::Kind::R8:
      out->vt = VT_R8;
      out->dblVal = value.real;
      return S_OK;
    case WmiValue::Kind::Bstr:
      out->bstrVal = SysAllocString(widen(value.text).c_str());
      if (out->bstrVal == nullptr) return E_OUTOFMEMORY;
      out->vt = VT_BSTR;
      return S_OK;
    case WmiValue::Kind::Bytes: {
      SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(value.bytes.size()));
      if (array == nullptr) return E_OUTOFMEMORY;
      for (LONG i = 0; i < static_cast<LONG>(value.bytes.size()); ++i) {
        BYTE byte = value.bytes[static_cast<size_t>(i)];
        SafeArrayPutElement(array, &i, &byte);
      }
      out->vt = VT_ARRAY | VT_UI1;
      out->parray = array;
      return S_OK;
    }
    case WmiValue::Kind::Strings: {
      SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(value.strings.size()));
      if (array == nullptr) return E_OUTOFMEMORY;
      for (LONG i = 0; i < static_cast<LONG>(value.strings.size()); ++i) {
        BSTR text = SysAllocString(widen(value.strings[static_cast<size_t>(i)]).c_str());
        SafeArrayPutElement(array, &i, text);
        SysFreeString(text);
      }
      out->vt = VT_ARRAY | VT_BSTR;
      out->parray = array;
      return S_OK;
    }
  }
  return E_FAIL;
}

bool fromVariant(const VARIANT& value, WmiValue* out) {
  WmiValue result;
  switch (value.vt) {
    case VT_EMPTY:
    case VT_NULL:
      break;
    case VT_I4:
      result = WmiValue::i4(value.lVal);
      break;
    case VT_BSTR:
      result = WmiValue::bstr(value.bstrVal != nullptr ? narrow(value.bstrVal) : std::string());
      break;
    case VT_BOOL:
      result.kind = WmiValue::Kind::Bool;
      result.number = value.boolVal != VARIANT_FALSE ? 1 : 0;
      break;
    case VT_ARRAY | VT_BSTR:
    case VT_ARRAY | VT_UI1: {
      const SAFEARRAY* array = value.parray;
      if (array == nullptr || array->cDims != 1) return false;
      const bool strings = value.vt == (VT_ARRAY | VT_BSTR);
      if (array->cbElements != (strings ? sizeof(BSTR) : 1)) return false;
      result.kind = strings ? WmiValue::Kind::Strings : WmiValue::Kind::Bytes;
      for (ULONG i = 0; i < array->rgsabound[0].cElements; ++i) {
        if (strings) {
          const BSTR element = static_cast<const BSTR*>(array->pvData)[i];
          result.strings.push_back(element != nullptr ? narrow(element) : std::string());
        } else {
          result.bytes.push_back(static_cast<const uint8_t*>(array->pvData)[i]);
        }
      }
      break;
    }
    default:
      return false;
  }
  *out = std::move(result);
  return true;
}

HRESULT runMethod(const std::string& nameSpace, const std::string& className, const std::string& method,
                  const WmiObject& in, WmiObject* out) {
  WmiClass cls;
  if (!findClass(nameSpace, className, &cls)) return WBEM_E_INVALID_CLASS;
  const WmiMethod* found = cls.findMethod(method);
  if (found == nullptr) return WBEM_E_INVALID_METHOD;
  *out = found->out;
  if (lowerAscii(cls.name) != lowerAscii(kLogicalDisk) || lowerAscii(method) != "scheduleautochk") {
    return WBEM_E_NOT_SUPPORTED;
  }
  const WmiProperty* drives = in.find("LogicalDisk");
  if (drives == nullptr || drives->value.kind != WmiValue::Kind::Strings) return WBEM_E_INVALID_PARAMETER;

  // Every drive must be a local, fixed root such as "C:"; otherwise nothing
  // is scheduled and the first reason is returned.
  Face& face = Face::instance();
  int64_t result = kAutoChkScheduled;
  std::vector<std::string> accepted;
  for (const std::string& drive : drives->value.strings) {
    const bool lettered = drive.size() >= 2 && drive[1] == ':' &&
                          ((drive[0] >= 'A' && drive[0] <= 'Z') || (drive[0] >= 'a' && drive[0] <= 'z'));
    Volume* volume = lettered ? face.volumeForLetter(upperAscii(drive.substr(0, 1))[0]) : nullptr;
    int64_t reason = kAutoChkScheduled;
    if (!lettered || volume == nullptr) {
      reason = kAutoChkUnknownDrive;
    } else if (drive.size() != 2) {
      reason = kAutoChkNotRoot;
    } else if (volumeIsRemovable(face, *volume)) {
      reason = kAutoChkRemovableDrive;
    }
    if (reason != kAutoChkScheduled) {
      result = reason;
      break;
    }
    accepted.push_back(upperAscii(drive));
  }
  if (result == kAutoChkScheduled) {
    for (const std::string& drive : accepted) management().scheduled.push_back(drive);
  }
  WmiProperty* returned = out->find("ReturnValue");
  if (returned != nullptr) returned->value = WmiValue::i4(result);
  return WBEM_S_NO_ERROR;
}

}  // namespace windows

std::vector<std::string> scheduledChecks() { return windows::management().scheduled; }

std::vector<std::string> managementCalls() { return windows::management().calls; }

}  // namespace sim
