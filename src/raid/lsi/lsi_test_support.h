// For the tests of the LSI stack: a library whose answers are handlers by
// command class and code, recording every record and buffer it was given;
// and a module loader that scripts which files and entry points exist.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "raid/lsi/lsi_sender.h"

namespace lsi_testing {

struct Call {
  LsiCmd record;
  std::vector<uint8_t> buffer;  // as it went in
};

class ScriptedLsiSender : public LsiSender {
 public:
  using Handler = std::function<uint32_t(LsiCmd& record, uint8_t* buffer)>;
  ScriptedLsiSender() : LsiSender(nullptr, nullptr) {}

  uint32_t execute(LsiCmd& record) override {
    auto* buffer = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(record.data));
    calls.push_back({record, buffer != nullptr ? std::vector<uint8_t>(buffer, buffer + record.dataLength)
                                               : std::vector<uint8_t>()});
    const auto it = handlers.find({record.commandClass, record.commandCode});
    return it == handlers.end() ? 1 : it->second(record, buffer);
  }

  size_t count(uint8_t commandClass, uint8_t code) const {
    size_t n = 0;
    for (const Call& call : calls) n += call.record.commandClass == commandClass && call.record.commandCode == code;
    return n;
  }

  std::map<std::pair<uint8_t, uint8_t>, Handler> handlers;
  std::vector<Call> calls;

 protected:
  const char* className() const override { return "ScriptedLsiSender"; }
};

inline void putU16(uint8_t* at, uint16_t v) {
  at[0] = static_cast<uint8_t>(v);
  at[1] = static_cast<uint8_t>(v >> 8);
}
inline void putU32(uint8_t* at, uint32_t v) {
  putU16(at, static_cast<uint16_t>(v));
  putU16(at + 2, static_cast<uint16_t>(v >> 16));
}
inline void putU64(uint8_t* at, uint64_t v) {
  putU32(at, static_cast<uint32_t>(v));
  putU32(at + 4, static_cast<uint32_t>(v >> 32));
}

class ScriptedModuleLoader : public ModuleLoader {
 public:
  void* load(const std::string& path, unsigned flags) override {
    loads.push_back(path);
    loadFlags.push_back(flags);
    const std::string name = path.substr(path.find_last_of('\\') + 1);
    if (files.count(name) == 0) return nullptr;
    return reinterpret_cast<void*>(static_cast<uintptr_t>(0x1000 + loads.size()));
  }
  void* resolve(void* handle, const std::string& name) override {
    resolves.push_back(name);
    const auto it = entries.find(name);
    (void)handle;
    return it == entries.end() ? nullptr : it->second;
  }
  void unload(void* handle) override { unloads.push_back(handle); }

  std::map<std::string, bool> files;
  std::map<std::string, void*> entries;
  std::vector<std::string> loads;
  std::vector<unsigned> loadFlags;
  std::vector<std::string> resolves;
  std::vector<void*> unloads;
};

}  // namespace lsi_testing
