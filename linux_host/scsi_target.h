// What a SCSI pass-through on a Linux host disk reaches: the kernel's SG_IO
// for a SCSI disk (sg_io.cpp), or, for a disk without it (virtio, eMMC, an
// image file), a translation of the few commands a plain block device can
// serve (block_scsi.cpp). Both speak CDBs and sense as a SCSI target does.
#pragma once

#include <cstdint>
#include <vector>

namespace linux_host {

enum class DataDirection { None, In, Out };

struct ScsiCommand {
  const uint8_t* cdb = nullptr;
  uint8_t cdbLength = 0;
  DataDirection direction = DataDirection::None;
  uint8_t* data = nullptr;  // `length` bytes, in or out
  uint32_t length = 0;
  uint32_t timeoutSeconds = 0;
};

struct ScsiAnswer {
  // A Win32 error when the command never reached the device (no device,
  // no rights, a transport failure); 0 when it did.
  uint32_t error = 0;
  uint8_t status = 0;  // SCSI status: 0x00 GOOD, 0x02 CHECK CONDITION
  std::vector<uint8_t> sense;
  uint32_t transferred = 0;
};

class ScsiTarget {
 public:
  virtual ~ScsiTarget() = default;
  virtual ScsiAnswer execute(const ScsiCommand& command) = 0;
};

// SCSI status and sense keys used by the translations.
constexpr uint8_t kStatusGood = 0x00;
constexpr uint8_t kStatusCheckCondition = 0x02;
constexpr uint8_t kSenseNoSense = 0x00;
constexpr uint8_t kSenseNotReady = 0x02;
constexpr uint8_t kSenseMediumError = 0x03;
constexpr uint8_t kSenseHardwareError = 0x04;
constexpr uint8_t kSenseIllegalRequest = 0x05;
constexpr uint8_t kSenseDataProtect = 0x07;
constexpr uint8_t kSenseAbortedCommand = 0x0B;

// CHECK CONDITION with fixed-format sense (response code 0x70):
//   0 0x70 (| 0x80 when `information` is valid)  2 sense key
//   3..6 information  7 additional length (10)  12 ASC  13 ASCQ
ScsiAnswer checkCondition(uint8_t senseKey, uint8_t asc, uint8_t ascq, bool informationValid = false,
                          uint32_t information = 0);

}  // namespace linux_host
