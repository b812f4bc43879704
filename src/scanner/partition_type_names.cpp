// Lookups over the partition type tables.
#include "scanner/partition_type_names.h"

#include <cstdio>

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
