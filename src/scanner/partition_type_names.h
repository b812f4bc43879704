// Names of partition types for the description of a disk: GPT type GUIDs and
// MBR type bytes. Names are opaque texts for the host; the `_` and `|` marks
// in many of them are for its display and are passed on as they are.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "win32/win32.h"

struct GptTypeRow {
  const char* guid;  // lower-case text form
  const char* name;
};

struct MbrTypeRow {
  uint8_t type;
  const char* name;
};

// The rows in their order of construction, duplicates included.
const std::vector<GptTypeRow>& gptTypeRows();
const std::vector<MbrTypeRow>& mbrTypeRows();

// The two lookup maps, built from the rows by assignment in row order, so a
// key that comes twice ends with its later name.
class PartitionTypeNames {
 public:
  PartitionTypeNames();

  // Empty for a type without a name.
  std::string mbrTypeName(uint8_t type) const;
  // `guidText` is the lower-case text form; empty when absent.
  std::string gptTypeName(const std::string& guidText) const;
  // The name of a type GUID as the layout query gives it: formatted through
  // the string service to the lower-case text form, then looked up.
  std::string gptTypeName(const GUID& guid) const;
  // The GUID fields as the lower-case text the GPT map is keyed by.
  static std::string formatGuid(uint32_t data1, uint16_t data2, uint16_t data3, const uint8_t data4[8]);

 private:
  std::map<std::string, std::string> gptTypeNames;
  std::map<uint8_t, std::string> mbrTypeNames;
};

// True for the MBR types that hold other partitions. The list is its own and
// does not follow from the name table: 57 has a name ("Plan 9") and is still
// a container.
bool isExtendedType(uint64_t type);
