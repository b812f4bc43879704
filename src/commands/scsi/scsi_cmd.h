// The SCSI command record: a CDB, the data phase and room for the device's
// status and sense. Building the CDB belongs to the command classes, carrying
// it to the transports, reading the sense to SenseData and the protocol.
#pragma once

#include <array>
#include <cstdint>

#include "commands/data_direction.h"

// Operation codes of the CDBs the module builds.
enum ScsiOperationCode : uint8_t {
  kScsiRequestSense = 0x03,
  kScsiModeSelect6 = 0x15,
  kScsiModeSense6 = 0x1A,
  kScsiSendDiagnostic = 0x1D,
  kScsiInquiry = 0x12,
  kScsiReadCapacity10 = 0x25,
  kScsiRead10 = 0x28,
  kScsiWrite10 = 0x2A,
  kScsiLogSense = 0x4D,
  kScsiModeSelect10 = 0x55,
  kScsiAtaPassThrough16 = 0x85,
  kScsiRead16 = 0x88,
  kScsiWrite16 = 0x8A,
  kScsiServiceActionIn16 = 0x9E,
  kScsiAtaPassThrough12 = 0xA1,
  kScsiWrite12 = 0xAA,
};

// SCSI status byte values.
constexpr uint8_t kScsiStatusGood = 0x00;
constexpr uint8_t kScsiStatusCheckCondition = 0x02;

// Room for sense bytes in every record and every sender.
constexpr uint32_t kScsiSenseBytes = 32;
constexpr uint32_t kScsiCdbBytes = 16;

// The caller owns the record and `buffer`; both outlive the transport call.
// After the call `dataLength` holds the bytes moved, `scsiStatus` the status
// byte and `sense`/`senseLength` what the sender returned.
class ScsiCmd {
 public:
  ScsiCmd() = default;
  ScsiCmd(const ScsiCmd&) = default;
  ScsiCmd& operator=(const ScsiCmd&) = default;
  virtual ~ScsiCmd() = default;

  std::array<uint8_t, kScsiCdbBytes> cdb{};
  uint8_t cdbLength = 0;
  uint8_t scsiStatus = kScsiStatusGood;
  std::array<uint8_t, kScsiSenseBytes> sense{};
  uint64_t senseLength = 0;
  uint64_t dataLength = 0;
  void* buffer = nullptr;  // borrowed
  uint32_t direction = kDirectionNone;
  uint32_t timeoutSeconds = kDefaultCommandTimeoutSeconds;

 protected:
  // Clears the CDB and the data phase before a constructor or a setup fills them.
  void resetRequest();
  void setDataIn(void* data, uint64_t length);
  void setDataOut(void* data, uint64_t length);
  // Stores `value` big-endian in `count` CDB bytes from `offset` on.
  void putBigEndian(uint32_t offset, uint32_t count, uint64_t value);
};
