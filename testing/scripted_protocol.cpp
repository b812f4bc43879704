// The scripted protocol: queued answers per operation and a call record.
#include "testing/scripted_protocol.h"

#include <cstring>

namespace mstest {

const char* opName(Op op) {
  switch (op) {
    case Op::GetProperties: return "getProperties";
    case Op::ReadSectors: return "readSectors";
    case Op::GetTemperature: return "getTemperature";
    case Op::StartSelfTest: return "startSelfTest";
    case Op::GetSelfTestProgress: return "getSelfTestProgress";
    case Op::GetSelfTestStatus: return "getSelfTestStatus";
    case Op::AbortSelfTest: return "abortSelfTest";
    case Op::GetSelfTestFailingLba: return "getSelfTestFailingLba";
    case Op::GetSmartStatus: return "getSmartStatus";
    case Op::EnableSmart: return "enableSmart";
    case Op::IsAccessible: return "isAccessible";
    case Op::WriteUncorrectable: return "writeUncorrectable";
    case Op::WriteSector: return "writeSector";
  }
  return "?";
}

ScriptedProtocol::ScriptedProtocol() {
  reported_.logicalSectorSize = 512;
  reported_.physicalSectorSize = 512;
  reported_.sectorCount = 1000000;
}

void ScriptedProtocol::script(Op op, uint32_t status, uint64_t value) { queues_[op].push_back({status, value}); }

void ScriptedProtocol::setDefault(Op op, uint32_t status, uint64_t value) { defaults_[op] = {status, value}; }

void ScriptedProtocol::setProperties(const StorageProtocolProperties& properties) { reported_ = properties; }

size_t ScriptedProtocol::count(Op op) const {
  size_t n = 0;
  for (const Call& call : calls) n += call.op == op ? 1 : 0;
  return n;
}

std::vector<Call> ScriptedProtocol::callsOf(Op op) const {
  std::vector<Call> result;
  for (const Call& call : calls) {
    if (call.op == op) result.push_back(call);
  }
  return result;
}

Answer ScriptedProtocol::next(Op op) {
  auto& queue = queues_[op];
  if (!queue.empty()) {
    Answer answer = queue.front();
    queue.pop_front();
    return answer;
  }
  auto it = defaults_.find(op);
  return it == defaults_.end() ? Answer{} : it->second;
}

uint32_t ScriptedProtocol::getProperties(StorageProtocolProperties* out) {
  calls.push_back({Op::GetProperties});
  Answer answer = next(Op::GetProperties);
  if (answer.status == 0) cache = reported_;
  if (out != nullptr) *out = cache;
  return answer.status;
}

uint32_t ScriptedProtocol::readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) {
  calls.push_back({Op::ReadSectors, lba, count, timeoutSeconds});
  Answer answer = next(Op::ReadSectors);
  if (fillRead && buffer != nullptr) fillRead(lba, count, buffer);
  return answer.status;
}

uint32_t ScriptedProtocol::getTemperature(uint8_t* celsius) {
  calls.push_back({Op::GetTemperature});
  Answer answer = next(Op::GetTemperature);
  if (celsius != nullptr) *celsius = static_cast<uint8_t>(answer.value);
  return answer.status;
}

uint32_t ScriptedProtocol::startSelfTest(uint8_t code, uint8_t count) {
  calls.push_back({Op::StartSelfTest, code, count});
  return next(Op::StartSelfTest).status;
}

uint32_t ScriptedProtocol::getSelfTestProgress(uint8_t* percentDone) {
  calls.push_back({Op::GetSelfTestProgress});
  Answer answer = next(Op::GetSelfTestProgress);
  if (percentDone != nullptr) *percentDone = static_cast<uint8_t>(answer.value);
  return answer.status;
}

uint32_t ScriptedProtocol::getSelfTestStatus(uint8_t* status) {
  calls.push_back({Op::GetSelfTestStatus});
  Answer answer = next(Op::GetSelfTestStatus);
  if (status != nullptr) *status = static_cast<uint8_t>(answer.value);
  return answer.status;
}

uint32_t ScriptedProtocol::abortSelfTest() {
  calls.push_back({Op::AbortSelfTest});
  return next(Op::AbortSelfTest).status;
}

uint32_t ScriptedProtocol::getSelfTestFailingLba(uint64_t* lba) {
  calls.push_back({Op::GetSelfTestFailingLba});
  Answer answer = next(Op::GetSelfTestFailingLba);
  if (lba != nullptr) *lba = answer.value;
  return answer.status;
}

uint32_t ScriptedProtocol::getSmartStatus(uint8_t* healthy) {
  calls.push_back({Op::GetSmartStatus});
  Answer answer = next(Op::GetSmartStatus);
  if (healthy != nullptr) *healthy = static_cast<uint8_t>(answer.value);
  return answer.status;
}

uint32_t ScriptedProtocol::enableSmart(uint8_t enable) {
  calls.push_back({Op::EnableSmart, enable});
  return next(Op::EnableSmart).status;
}

bool ScriptedProtocol::isAccessible() {
  calls.push_back({Op::IsAccessible});
  return next(Op::IsAccessible).status == 0;
}

uint32_t ScriptedProtocol::writeUncorrectable(uint64_t lba) {
  calls.push_back({Op::WriteUncorrectable, lba});
  return next(Op::WriteUncorrectable).status;
}

uint32_t ScriptedProtocol::writeSector(uint64_t lba, void* buffer) {
  calls.push_back({Op::WriteSector, lba});
  Answer answer = next(Op::WriteSector);
  if (answer.status == 0 && buffer != nullptr) {
    uint32_t size = cache.logicalSectorSize >= 512 ? cache.logicalSectorSize : 512;
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    written[lba].assign(bytes, bytes + size);
  }
  return answer.status;
}

}  // namespace mstest
