// The simulated WMI service as COM objects: the locator, the services of a
// namespace, the enumerator of a query's rows and the class objects
// (instances, classes and method parameters). Methods a client of this module
// has no use for answer WBEM_E_NOT_SUPPORTED, as a provider without them does.
#include <cstring>

#include "sim/windows/face_state.h"
#include "sim/windows/wmi_state.h"
#include "sim/windows/wql.h"

namespace sim {
namespace windows {

namespace {

constexpr GUID kUnknownInterface = {0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr GUID kLocatorInterface = {0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
constexpr GUID kClassObjectInterface = {0xDC12A681, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
constexpr GUID kServicesInterface = {0x9556DC99, 0x828C, 0x11CF, {0xA3, 0x7E, 0x00, 0xAA, 0x00, 0x32, 0x40, 0xC7}};
constexpr GUID kEnumInterface = {0x027947E1, 0xD731, 0x11CE, {0xA3, 0x57, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}};

std::string text(const OLECHAR* wide) { return wide == nullptr ? std::string() : narrow(wide); }

// Reference counting and the live count, shared by the objects below.
template <typename Interface>
class ComObject : public Interface {
 public:
  explicit ComObject(const GUID& own) : own_(own) { ++management().liveObjects; }
  virtual ~ComObject() { --management().liveObjects; }
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  HRESULT QueryInterface(REFIID riid, void** object) override {
    if (object == nullptr) return E_POINTER;
    if (std::memcmp(&riid, &kUnknownInterface, sizeof(GUID)) == 0 || std::memcmp(&riid, &own_, sizeof(GUID)) == 0) {
      AddRef();
      *object = this;
      return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG AddRef() override { return ++references_; }
  ULONG Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

 private:
  GUID own_;
  ULONG references_ = 1;
};

// An instance, a class (with its methods), or a method's parameters.
class ClassObject final : public ComObject<IWbemClassObject> {
 public:
  enum class Role { Instance, Class, Parameters };
  ClassObject(Role role, std::string nameSpace, WmiObject data)
      : ComObject(kClassObjectInterface), role_(role), nameSpace_(std::move(nameSpace)), data_(std::move(data)) {}

  void setMethods(std::vector<WmiMethod> methods) { methods_ = std::move(methods); }
  const WmiObject& data() const { return data_; }

  HRESULT GetQualifierSet(IWbemQualifierSet**) override { return WBEM_E_NOT_SUPPORTED; }

  HRESULT Get(LPCWSTR name, LONG, VARIANT* value, CIMTYPE* type, LONG* flavor) override {
    const std::string property = text(name);
    noteCall("Get " + property);
    if (name == nullptr) return WBEM_E_INVALID_PARAMETER;
    if (callFails("Get") || callFails("Get", property)) return WBEM_E_FAILED;
    const WmiProperty* found = data_.find(property);
    if (found == nullptr) return WBEM_E_NOT_FOUND;
    if (value != nullptr) {
      const HRESULT made = toVariant(found->value, value);
      if (FAILED(made)) return made;
    }
    if (type != nullptr) {
      WmiValue typed = found->value;
      if (typed.kind == WmiValue::Kind::Null) typed.kind = found->declared;
      *type = cimTypeOf(typed);
    }
    if (flavor != nullptr) *flavor = 0;
    return WBEM_S_NO_ERROR;
  }

  HRESULT Put(LPCWSTR name, LONG, VARIANT* value, CIMTYPE) override {
    const std::string property = text(name);
    noteCall("Put " + property);
    if (name == nullptr) return WBEM_E_INVALID_PARAMETER;
    if (callFails("Put") || callFails("Put", property)) return WBEM_E_FAILED;
    WmiProperty* found = data_.find(property);
    if (found == nullptr) return WBEM_E_NOT_FOUND;
    WmiValue converted;
    if (value != nullptr && !fromVariant(*value, &converted)) return WBEM_E_TYPE_MISMATCH;
    if (found->declared != WmiValue::Kind::Null && converted.kind != WmiValue::Kind::Null &&
        converted.kind != found->declared) {
      return WBEM_E_TYPE_MISMATCH;
    }
    found->value = std::move(converted);
    return WBEM_S_NO_ERROR;
  }

  HRESULT Delete(LPCWSTR) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT GetNames(LPCWSTR, LONG, VARIANT*, SAFEARRAY**) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT BeginEnumeration(LONG) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT Next(LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT EndEnumeration() override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT GetPropertyQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return WBEM_E_NOT_SUPPORTED; }

  HRESULT Clone(IWbemClassObject** copy) override {
    if (copy == nullptr) return WBEM_E_INVALID_PARAMETER;
    auto* made = new ClassObject(role_, nameSpace_, data_);
    made->setMethods(methods_);
    *copy = made;
    return WBEM_S_NO_ERROR;
  }

  HRESULT GetObjectText(LONG, BSTR*) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT SpawnDerivedClass(LONG, IWbemClassObject**) override { return WBEM_E_NOT_SUPPORTED; }

  HRESULT SpawnInstance(LONG, IWbemClassObject** instance) override {
    noteCall("SpawnInstance " + data_.className);
    if (instance == nullptr) return WBEM_E_INVALID_PARAMETER;
    *instance = nullptr;
    if (role_ == Role::Instance) return WBEM_E_INVALID_OPERATION_ON_INSTANCE;
    if (callFails("SpawnInstance")) return WBEM_E_FAILED;
    WmiObject fresh = data_;
    for (WmiProperty& property : fresh.properties) property.value = WmiValue();
    *instance = new ClassObject(Role::Instance, nameSpace_, std::move(fresh));
    return WBEM_S_NO_ERROR;
  }

  HRESULT CompareTo(LONG, IWbemClassObject*) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT GetPropertyOrigin(LPCWSTR, BSTR*) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT InheritsFrom(LPCWSTR) override { return WBEM_E_NOT_SUPPORTED; }

  HRESULT GetMethod(LPCWSTR name, LONG, IWbemClassObject** inSignature, IWbemClassObject** outSignature) override {
    const std::string method = text(name);
    noteCall("GetMethod " + method);
    if (inSignature != nullptr) *inSignature = nullptr;
    if (outSignature != nullptr) *outSignature = nullptr;
    if (name == nullptr) return WBEM_E_INVALID_PARAMETER;
    if (callFails("GetMethod")) return WBEM_E_FAILED;
    for (const WmiMethod& entry : methods_) {
      if (lowerAscii(entry.name) != lowerAscii(method)) continue;
      if (inSignature != nullptr) *inSignature = new ClassObject(Role::Parameters, nameSpace_, entry.in);
      if (outSignature != nullptr) *outSignature = new ClassObject(Role::Parameters, nameSpace_, entry.out);
      return WBEM_S_NO_ERROR;
    }
    return WBEM_E_NOT_FOUND;
  }

  HRESULT PutMethod(LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT DeleteMethod(LPCWSTR) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT BeginMethodEnumeration(LONG) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT NextMethod(LONG, BSTR*, IWbemClassObject**, IWbemClassObject**) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT EndMethodEnumeration() override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT GetMethodQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT GetMethodOrigin(LPCWSTR, BSTR*) override { return WBEM_E_NOT_SUPPORTED; }

 private:
  static constexpr HRESULT WBEM_E_INVALID_OPERATION_ON_INSTANCE = WBEM_E_INVALID_PARAMETER;
  Role role_;
  std::string nameSpace_;
  WmiObject data_;
  std::vector<WmiMethod> methods_;
};

class Enumerator final : public ComObject<IEnumWbemClassObject> {
 public:
  Enumerator(std::string nameSpace, std::vector<WmiObject> rows)
      : ComObject(kEnumInterface), nameSpace_(std::move(nameSpace)), rows_(std::move(rows)) {}

  HRESULT Reset() override {
    next_ = 0;
    return WBEM_S_NO_ERROR;
  }

  HRESULT Next(LONG, ULONG count, IWbemClassObject** objects, ULONG* returned) override {
    if (objects == nullptr || returned == nullptr) return WBEM_E_INVALID_PARAMETER;
    *returned = 0;
    while (*returned < count && next_ < rows_.size()) {
      // A provider that reports a row and hands no object with it.
      objects[*returned] = callFails("NextWithoutObject")
                               ? nullptr
                               : new ClassObject(ClassObject::Role::Instance, nameSpace_, rows_[next_]);
      ++next_;
      ++*returned;
    }
    return *returned == count ? WBEM_S_NO_ERROR : WBEM_S_FALSE;
  }

  HRESULT NextAsync(ULONG, IWbemObjectSink*) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT Clone(IEnumWbemClassObject** copy) override {
    if (copy == nullptr) return WBEM_E_INVALID_PARAMETER;
    auto* made = new Enumerator(nameSpace_, rows_);
    made->next_ = next_;
    *copy = made;
    return WBEM_S_NO_ERROR;
  }
  HRESULT Skip(LONG, ULONG count) override {
    const size_t left = rows_.size() - next_;
    next_ += count < left ? count : left;
    return count <= left ? WBEM_S_NO_ERROR : WBEM_S_FALSE;
  }

 private:
  std::string nameSpace_;
  std::vector<WmiObject> rows_;
  size_t next_ = 0;
};

// The rows of a query: the instances that match, each with the selected
// properties only (all of them for "*").
HRESULT runQuery(const std::string& nameSpace, const std::string& wql, std::vector<WmiObject>* rows) {
  WqlQuery query;
  if (!parseWql(wql, &query, nullptr)) return WBEM_E_INVALID_QUERY;
  WmiClass cls;
  if (!findClass(nameSpace, query.className, &cls)) return WBEM_E_INVALID_CLASS;
  for (const std::string& name : wqlNamesUsed(query)) {
    if (!cls.hasProperty(name)) return WBEM_E_INVALID_QUERY;
  }
  for (const WmiObject& instance : cls.instances) {
    if (!wqlMatches(query, instance)) continue;
    if (query.fields.empty()) {
      rows->push_back(instance);
      continue;
    }
    WmiObject projected;
    projected.className = instance.className;
    for (const std::string& field : query.fields) {
      const WmiProperty* property = instance.find(field);
      WmiProperty copy;
      copy.name = field;
      if (property != nullptr) copy = *property;
      if (projected.find(copy.name) == nullptr) projected.properties.push_back(copy);
    }
    rows->push_back(std::move(projected));
  }
  return WBEM_S_NO_ERROR;
}

class Services final : public ComObject<IWbemServices> {
 public:
  explicit Services(std::string nameSpace) : ComObject(kServicesInterface), nameSpace_(std::move(nameSpace)) {}

  HRESULT OpenNamespace(const BSTR, LONG, IWbemContext*, IWbemServices**, IWbemCallResult**) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT CancelAsyncCall(IWbemObjectSink*) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT QueryObjectSink(LONG, IWbemObjectSink**) override { return WBEM_E_NOT_SUPPORTED; }

  HRESULT GetObject(const BSTR objectPath, LONG, IWbemContext*, IWbemClassObject** object,
                    IWbemCallResult**) override {
    const std::string path = text(objectPath);
    noteCall("GetObject " + path);
    if (object == nullptr) return WBEM_E_INVALID_PARAMETER;
    *object = nullptr;
    if (callFails("GetObject")) return WBEM_E_FAILED;
    WmiClass cls;
    if (path.empty() || !findClass(nameSpace_, path, &cls)) return WBEM_E_NOT_FOUND;
    WmiObject data;
    data.className = cls.name;
    for (const std::string& name : cls.propertyNames) {
      WmiProperty property;
      property.name = name;
      data.properties.push_back(property);
    }
    auto* made = new ClassObject(ClassObject::Role::Class, nameSpace_, std::move(data));
    made->setMethods(cls.methods);
    *object = made;
    return WBEM_S_NO_ERROR;
  }

  HRESULT GetObjectAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT PutClass(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT PutClassAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT DeleteClass(const BSTR, LONG, IWbemContext*, IWbemCallResult**) override { return WBEM_E_NOT_SUPPORTED; }
  HRESULT DeleteClassAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT CreateClassEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT CreateClassEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT PutInstance(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT PutInstanceAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT DeleteInstance(const BSTR, LONG, IWbemContext*, IWbemCallResult**) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT DeleteInstanceAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT CreateInstanceEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT CreateInstanceEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }

  HRESULT ExecQuery(const BSTR queryLanguage, const BSTR query, LONG, IWbemContext*,
                    IEnumWbemClassObject** enumerator) override {
    const std::string language = text(queryLanguage);
    noteCall("ExecQuery " + language + " " + text(query));
    if (enumerator == nullptr) return WBEM_E_INVALID_PARAMETER;
    *enumerator = nullptr;
    if (callFails("ExecQuery")) return WBEM_E_FAILED;
    if (lowerAscii(language) != "wql") return WBEM_E_INVALID_QUERY_TYPE;
    std::vector<WmiObject> rows;
    const HRESULT result = runQuery(nameSpace_, text(query), &rows);
    if (FAILED(result)) return result;
    *enumerator = new Enumerator(nameSpace_, std::move(rows));
    return WBEM_S_NO_ERROR;
  }

  HRESULT ExecQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT ExecNotificationQuery(const BSTR, const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override {
    return WBEM_E_NOT_SUPPORTED;
  }
  HRESULT ExecNotificationQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }

  HRESULT ExecMethod(const BSTR objectPath, const BSTR methodName, LONG, IWbemContext*, IWbemClassObject* inParams,
                     IWbemClassObject** outParams, IWbemCallResult**) override {
    const std::string path = text(objectPath);
    const std::string method = text(methodName);
    noteCall("ExecMethod " + path + " " + method);
    if (outParams != nullptr) *outParams = nullptr;
    if (callFails("ExecMethod")) return WBEM_E_FAILED;
    // Only parameters made by this service can be read.
    auto* parameters = dynamic_cast<ClassObject*>(inParams);
    if (parameters == nullptr) return WBEM_E_INVALID_PARAMETER;
    WmiObject out;
    const HRESULT result = runMethod(nameSpace_, path, method, parameters->data(), &out);
    if (FAILED(result)) return result;
    if (outParams != nullptr) *outParams = new ClassObject(ClassObject::Role::Instance, nameSpace_, std::move(out));
    return result;
  }

  HRESULT ExecMethodAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                          IWbemObjectSink*) override {
    return WBEM_E_NOT_SUPPORTED;
  }

 private:
  std::string nameSpace_;
};

class Locator final : public ComObject<IWbemLocator> {
 public:
  Locator() : ComObject(kLocatorInterface) {}

  HRESULT ConnectServer(const BSTR networkResource, const BSTR, const BSTR, const BSTR, LONG, const BSTR,
                        IWbemContext*, IWbemServices** nameSpace) override {
    const std::string resource = text(networkResource);
    noteCall("ConnectServer " + resource);
    if (nameSpace == nullptr) return WBEM_E_INVALID_PARAMETER;
    *nameSpace = nullptr;
    if (callFails("ConnectServer")) return WBEM_E_FAILED;
    if (!namespaceExists(resource)) return WBEM_E_INVALID_NAMESPACE;
    *nameSpace = new Services(canonicalNamespace(resource));
    return WBEM_S_NO_ERROR;
  }
};

}  // namespace

IWbemLocator* newLocator() { return new Locator(); }

}  // namespace windows
}  // namespace sim
