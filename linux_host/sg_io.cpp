// SG_IO requests and answers, and ATA commands carried in SAT's ATA
// PASS-THROUGH (16).
#include "linux_host/sg_io.h"

#include <errno.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cstring>

#include "linux_host/block_medium.h"
#include "win32/win32.h"

namespace linux_host {

namespace {

constexpr uint32_t kDefaultTimeoutSeconds = 60;
constexpr uint8_t kSenseBytes = 64;
// host_status values of the SCSI mid-layer.
constexpr unsigned short kDidNoConnect = 0x01;
constexpr unsigned short kDidBusBusy = 0x02;
constexpr unsigned short kDidTimeOut = 0x03;
// driver_status: sense was written (not a failure).
constexpr unsigned short kDriverSense = 0x08;
constexpr unsigned short kDriverTimeout = 0x06;

constexpr uint8_t kAtaPassThrough16 = 0x85;
constexpr uint8_t kProtocolNonData = 3;
constexpr uint8_t kProtocolPioIn = 4;
constexpr uint8_t kProtocolPioOut = 5;
constexpr uint8_t kProtocolDma = 6;

}  // namespace

sg_io_hdr_t buildSgIoHeader(const ScsiCommand& command, uint8_t* sense, uint8_t senseSize) {
  sg_io_hdr_t header;
  std::memset(&header, 0, sizeof(header));
  header.interface_id = 'S';
  header.cmd_len = command.cdbLength;
  header.cmdp = const_cast<unsigned char*>(command.cdb);
  header.mx_sb_len = senseSize;
  header.sbp = sense;
  header.dxfer_len = command.data != nullptr ? command.length : 0;
  header.dxferp = header.dxfer_len > 0 ? command.data : nullptr;
  header.dxfer_direction = header.dxfer_len == 0                        ? SG_DXFER_NONE
                           : command.direction == DataDirection::Out ? SG_DXFER_TO_DEV
                                                                      : SG_DXFER_FROM_DEV;
  const uint32_t seconds = command.timeoutSeconds == 0 ? kDefaultTimeoutSeconds : command.timeoutSeconds;
  header.timeout = seconds > 0xFFFFFFFFu / 1000 ? 0xFFFFFFFFu : seconds * 1000;
  return header;
}

ScsiAnswer answerFromSgIo(const sg_io_hdr_t& header, const uint8_t* sense) {
  ScsiAnswer answer;
  if (header.host_status == kDidNoConnect) {
    answer.error = ERROR_DEVICE_NOT_CONNECTED;
    return answer;
  }
  if (header.host_status == kDidTimeOut || (header.driver_status & 0x0F) == kDriverTimeout) {
    answer.error = ERROR_SEM_TIMEOUT;
    return answer;
  }
  if (header.host_status == kDidBusBusy || header.host_status > kDidTimeOut ||
      (header.driver_status & 0x0F & ~kDriverSense) != 0) {
    answer.error = ERROR_IO_DEVICE;
    return answer;
  }
  answer.status = header.status;
  if (header.sb_len_wr > 0 && sense != nullptr) answer.sense.assign(sense, sense + header.sb_len_wr);
  const int moved = static_cast<int>(header.dxfer_len) - header.resid;
  answer.transferred = moved > 0 ? static_cast<uint32_t>(moved) : 0;
  return answer;
}

std::array<uint8_t, 16> ataPassThrough16(const AtaTaskFile& t, DataDirection direction) {
  std::array<uint8_t, 16> cdb{};
  uint8_t protocol = kProtocolNonData;
  if (direction != DataDirection::None) {
    protocol = t.dma ? kProtocolDma : direction == DataDirection::In ? kProtocolPioIn : kProtocolPioOut;
  }
  cdb[0] = kAtaPassThrough16;
  cdb[1] = static_cast<uint8_t>((protocol << 1) | (t.extended ? 1 : 0));
  uint8_t flags = 0x20;  // CK_COND
  if (direction != DataDirection::None) {
    flags |= 0x04 | 0x02;  // BYTE_BLOCK, T_LENGTH in the count field
    if (direction == DataDirection::In) flags |= 0x08;  // T_DIR
  }
  cdb[2] = flags;
  if (t.extended) {
    cdb[3] = t.previous[0];
    cdb[5] = t.previous[1];
    cdb[7] = t.previous[2];
    cdb[9] = t.previous[3];
    cdb[11] = t.previous[4];
  }
  cdb[4] = t.current[0];
  cdb[6] = t.current[1];
  cdb[8] = t.current[2];
  cdb[10] = t.current[3];
  cdb[12] = t.current[4];
  cdb[13] = t.current[5];
  cdb[14] = t.current[6];
  return cdb;
}

bool registersFromSense(const std::vector<uint8_t>& sense, AtaTaskFile* r) {
  if (sense.size() < 8 || r == nullptr) return false;
  const uint8_t code = sense[0] & 0x7F;
  *r = AtaTaskFile{};
  if (code == 0x72 || code == 0x73) {
    const size_t end = std::min<size_t>(sense.size(), 8 + static_cast<size_t>(sense[7]));
    for (size_t at = 8; at + 2 <= end;) {
      const size_t length = 2 + static_cast<size_t>(sense[at + 1]);
      if (sense[at] == 0x09 && length >= 14 && at + 14 <= end) {
        const uint8_t* d = &sense[at];
        r->extended = (d[2] & 0x01) != 0;
        r->current[0] = d[3];
        r->current[1] = d[5];
        r->current[2] = d[7];
        r->current[3] = d[9];
        r->current[4] = d[11];
        r->current[5] = d[12];
        r->current[6] = d[13];
        if (r->extended) {
          r->previous[1] = d[4];
          r->previous[2] = d[6];
          r->previous[3] = d[8];
          r->previous[4] = d[10];
        }
        return true;
      }
      at += length;
    }
    return false;
  }
  if ((code == 0x70 || code == 0x71) && sense.size() >= 14 && sense[12] == 0x00 && sense[13] == 0x1D) {
    r->current[0] = sense[3];
    r->current[6] = sense[4];
    r->current[5] = sense[5];
    r->current[1] = sense[6];
    r->extended = (sense[8] & 0x80) != 0;
    r->current[2] = sense[9];
    r->current[3] = sense[10];
    r->current[4] = sense[11];
    return true;
  }
  return false;
}

AtaAnswer ataAnswerFrom(const ScsiAnswer& scsi) {
  AtaAnswer answer;
  answer.error = scsi.error;
  if (answer.error != ERROR_SUCCESS) return answer;
  answer.transferred = scsi.transferred;
  if (registersFromSense(scsi.sense, &answer.registers)) return answer;
  if (scsi.status == kStatusGood) {
    // A translation that ignored CK_COND: the command ended well, DRDY set.
    answer.registers.current[6] = 0x50;
    return answer;
  }
  const uint8_t key = scsi.sense.size() > 2 ? static_cast<uint8_t>(
                                                  (scsi.sense[0] & 0x7F) >= 0x72 ? scsi.sense[1] & 0x0F
                                                                                 : scsi.sense[2] & 0x0F)
                                            : 0;
  answer.error = key == kSenseIllegalRequest ? ERROR_NOT_SUPPORTED : ERROR_IO_DEVICE;
  return answer;
}

ScsiAnswer SgIoTarget::execute(const ScsiCommand& command) {
  uint8_t sense[kSenseBytes] = {};
  sg_io_hdr_t header = buildSgIoHeader(command, sense, sizeof(sense));
  if (::ioctl(fd_, SG_IO, &header) != 0) {
    ScsiAnswer failed;
    failed.error = win32ErrorOf(errno);
    return failed;
  }
  return answerFromSgIo(header, sense);
}

AtaAnswer SgIoTarget::executeAta(const AtaTaskFile& taskFile, DataDirection direction, uint8_t* data, uint32_t length,
                                 uint32_t timeoutSeconds) {
  const std::array<uint8_t, 16> cdb = ataPassThrough16(taskFile, direction);
  ScsiCommand command;
  command.cdb = cdb.data();
  command.cdbLength = 16;
  command.direction = direction;
  command.data = data;
  command.length = direction == DataDirection::None ? 0 : length;
  command.timeoutSeconds = timeoutSeconds;
  return ataAnswerFrom(execute(command));
}

}  // namespace linux_host
