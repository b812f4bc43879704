// Identity of an item of the catalogue: module, diagnostic and test numbers.
// A host compiles against this header; the layout is part of the contract.
#pragma once

#include <cstdint>

// Names one item of the catalogue, written module.diagnostic.test (1.1.4).
// The two 24-bit fields keep their low 24 bits, but packedId is built from the
// values as passed; the two forms differ only above 24 bits, which the module
// never passes. Equality and ordering use packedId alone.
struct ItemId {
  uint16_t moduleId = 0;
  uint32_t diagnosticId = 0;
  uint32_t testId = 0;
  uint64_t packedId = 0;

  ItemId() = default;
  ItemId(uint16_t module, uint32_t diagnostic, uint32_t test)
      : moduleId(module),
        diagnosticId(diagnostic & 0xffffffu),
        testId(test & 0xffffffu),
        packedId((uint64_t{module} << 48) | (uint64_t{diagnostic} << 24) | uint64_t{test}) {}

  bool operator==(const ItemId& other) const { return packedId == other.packedId; }
  bool operator!=(const ItemId& other) const { return packedId != other.packedId; }
  bool operator<(const ItemId& other) const { return packedId < other.packedId; }
};
