// Checks shared by the SCSI command tests: the whole CDB and the whole data
// phase of a record, so that a stray byte anywhere fails.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <utility>

#include "commands/scsi/scsi_cmd.h"

namespace scsitest {

// `bytes` lists (offset, value) pairs; every other CDB byte must be 0.
inline void expectCdb(const ScsiCmd& cmd, uint8_t length, std::initializer_list<std::pair<int, int>> bytes) {
  std::array<uint8_t, 16> expected{};
  for (const auto& [offset, value] : bytes) expected[offset] = static_cast<uint8_t>(value);
  EXPECT_EQ(cmd.cdbLength, length);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(cmd.cdb[i], expected[i]) << "CDB byte " << i;
}

inline void expectData(const ScsiCmd& cmd, uint32_t direction, uint64_t length, const void* buffer,
                       uint32_t timeoutSeconds = 30) {
  EXPECT_EQ(cmd.direction, direction);
  EXPECT_EQ(cmd.dataLength, length);
  EXPECT_EQ(cmd.buffer, buffer);
  EXPECT_EQ(cmd.timeoutSeconds, timeoutSeconds);
}

inline void expectNoAnswerYet(const ScsiCmd& cmd) {
  EXPECT_EQ(cmd.scsiStatus, 0);
  EXPECT_EQ(cmd.senseLength, 0u);
  for (uint8_t b : cmd.sense) EXPECT_EQ(b, 0);
}

}  // namespace scsitest
