// Lookups over the partition type tables.
#include "scanner/partition_type_names.h"

#include <cstdio>

#include "system/string_handler.h"

PartitionTypeNames::PartitionTypeNames() {
  for (const GptTypeRow& row : gptTypeRows()) gptTypeNames[row.guid] = row.name;
  for (const MbrTypeRow& row : mbrTypeRows()) mbrTypeNames[row.type] = row.name;
}

std::string PartitionTypeNames::mbrTypeName(uint8_t type) const {
  auto it = mbrTypeNames.find(type);
  return it == mbrTypeNames.end() ? std::string() : it->second;
}

std::string PartitionTypeNames::gptTypeName(const std::string& guidText) const {
  auto it = gptTypeNames.find(guidText);
  return it == gptTypeNames.end() ? std::string() : it->second;
}

std::string PartitionTypeNames::gptTypeName(const GUID& guid) const {
  // 36 characters and the NUL fit the 38 bytes the text form is printed into.
  char text[38];
  if (getStringHandler().formatInto(text, sizeof text, "%08lx-%04hx-%04hx-%02hhx%02hhx-%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx",
                                    static_cast<unsigned long>(guid.Data1), guid.Data2, guid.Data3, guid.Data4[0],
                                    guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                                    guid.Data4[6], guid.Data4[7]) < 0) {
    return std::string();
  }
  return gptTypeName(std::string(text));
}

std::string PartitionTypeNames::formatGuid(uint32_t data1, uint16_t data2, uint16_t data3, const uint8_t data4[8]) {
  char text[38];
  std::snprintf(text, sizeof text, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", data1, data2, data3, data4[0],
                data4[1], data4[2], data4[3], data4[4], data4[5], data4[6], data4[7]);
  return text;
}

bool isExtendedType(uint64_t type) {
  switch (type) {
    case 5: case 15: case 21: case 31: case 34: case 57: case 59: case 92: case 94: case 95: case 133:
    case 145: case 153: case 155: case 165: case 166: case 169: case 191: case 197: case 207: case 213:
    case 245:
      return true;
    default:
      return false;
  }
}
