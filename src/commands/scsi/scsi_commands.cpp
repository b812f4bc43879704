// CDBs of INQUIRY, REQUEST SENSE, READ CAPACITY and SEND DIAGNOSTIC.
#include "commands/scsi/scsi_commands.h"

namespace {
constexpr uint8_t kInquiryEvpd = 0x01;
constexpr uint8_t kReadCapacity16ServiceAction = 0x10;
constexpr uint32_t kReadCapacity10Bytes = 8;
constexpr uint32_t kReadCapacity16Bytes = 32;
}  // namespace

Inquiry::Inquiry(void* data, uint32_t length, bool evpd, uint8_t page) {
  cdbLength = 6;
  cdb[0] = kScsiInquiry;
  if (evpd) {
    cdb[1] = kInquiryEvpd;
    cdb[2] = page;
  }
  putBigEndian(3, 2, length);
  if (length != 0) setDataIn(data, length);
}

RequestSense::RequestSense(void* data, uint32_t length) {
  cdbLength = 10;
  cdb[0] = kScsiRequestSense;
  cdb[4] = static_cast<uint8_t>(length);
  if (length != 0) setDataIn(data, length);
}

ReadCapacity10::ReadCapacity10(void* data) {
  cdbLength = 10;
  cdb[0] = kScsiReadCapacity10;
  setDataIn(data, kReadCapacity10Bytes);
}

ReadCapacity16::ReadCapacity16(void* data) {
  cdbLength = 16;
  cdb[0] = kScsiServiceActionIn16;
  cdb[1] = kReadCapacity16ServiceAction;
  cdb[13] = static_cast<uint8_t>(kReadCapacity16Bytes);
  setDataIn(data, kReadCapacity16Bytes);
}

SendDiagnostic::SendDiagnostic(uint8_t code, uint8_t /*ignored*/) {
  cdbLength = 6;
  cdb[0] = kScsiSendDiagnostic;
  cdb[1] = static_cast<uint8_t>(code << 5);
  if (code == 0) cdb[1] |= kSendDiagnosticSelfTest;
}
