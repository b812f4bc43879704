// The SCSI protocol, for drives that do not speak ATA to the host (SCSI and
// SAS disks, USB mass storage without a pass-through), and its NVMe variant
// for drives the operating system presents through a SCSI translation. The
// CDBs are built in commands/scsi, carried by the ScsiBridge list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>

#include "commands/bridges/scsi_bridge.h"
#include "commands/scsi/scsi_cmd.h"
#include "protocols/storage_protocol.h"
#include "protocols/transport_list.h"

class ScsiProtocol : public StorageProtocol {
 public:
  ScsiProtocol();
  ~ScsiProtocol() override;

  // The first transport's handle; null while the list is empty.
  HANDLE getHandle() override;
  // Standard inquiry, unit serial number, capacity, block device
  // characteristics and the SMART (informational exceptions) state. 1 for a
  // null `out`; otherwise the cache, as far as it got, is copied to `out` and
  // the status of the first failed step (or 0) is the result.
  uint32_t getProperties(StorageProtocolProperties* out) override;
  // READ(16), then the two READ(10) forms; 75 when the sense names a medium
  // error. `timeoutSeconds` is not used: every read keeps its default.
  uint32_t readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) override;
  // The temperature log page; 1 when the device reports 255 (no value).
  uint32_t getTemperature(uint8_t* celsius) override;
  // SEND DIAGNOSTIC with the self-test `code`; `count` is not used.
  uint32_t startSelfTest(uint8_t code, uint8_t count) override;
  // From the progress indication of REQUEST SENSE.
  uint32_t getSelfTestProgress(uint8_t* percentDone) override;
  // The result nibble of the newest self-test log entry.
  uint32_t getSelfTestStatus(uint8_t* status) override;
  uint32_t abortSelfTest() override;
  // The newest self-test log entry's address of first failure; 1 for all ones.
  uint32_t getSelfTestFailingLba(uint64_t* lba) override;
  // The informational exceptions log page, then REQUEST SENSE, then the
  // platform's failure prediction.
  uint32_t getSmartStatus(uint8_t* healthy) override;
  // Sets or restores MRIE and DEXCPT in the informational exceptions control
  // mode page, through MODE SELECT(6) or, failing that, MODE SELECT(10).
  uint32_t enableSmart(uint8_t enable) override;
  bool isAccessible() override;
  // Not done on SCSI drives; always 0.
  uint32_t writeUncorrectable(uint64_t lba) override;
  // WRITE(16), then WRITE(12), then WRITE(10) of one sector.
  uint32_t writeSector(uint64_t lba, void* buffer) override;

  // As AtaProtocol::addTransport.
  bool addTransport(std::shared_ptr<ScsiBridge> transport);
  // Each transport in order until one returns 0; it moves to the front. 78
  // with no transport, otherwise the last failure.
  uint32_t sendCommand(ScsiCmd& cmd);
  // sendCommand, then the sense: 79 for sense of an unknown form, 78 for
  // ILLEGAL REQUEST or DATA PROTECT, 0 for any other key.
  uint32_t sendChecked(ScsiCmd& cmd);
  // Whether a device answers INQUIRY on `transport` at all: 5 bytes of data,
  // or sense that parses with a key other than ILLEGAL REQUEST. The result of
  // the send itself is not looked at.
  static bool isScsiResponding(ScsiBridge& transport);

  // The SCSI status byte of the last accepted startSelfTest.
  uint8_t getLastSelfTestScsiStatus() const { return lastSelfTestScsiStatus; }

  const TransportList<ScsiBridge>& getTransports() const { return transports; }

 protected:
  // The SMART verdict routes. readSenseHealth: REQUEST SENSE of 252 bytes,
  // healthy unless ASC 0xD5. readIecLog: the informational exceptions log
  // page, healthy unless its ASC is 0x5D.
  uint32_t readSenseHealth(uint8_t* healthy);
  uint32_t readIecLog(uint8_t* healthy);

 private:
  // What the sense of a sent command means: 0 without sense, 79 for sense of
  // an unknown form, 78 for ILLEGAL REQUEST or DATA PROTECT, 0 otherwise.
  static uint32_t senseStatus(const ScsiCmd& cmd);
  // The checked read: sendChecked, then a GOOD status and some data, else 1.
  uint32_t checkedRead(ScsiCmd& cmd);
  uint32_t readStandardInquiry();
  uint32_t readUnitSerialNumber();
  uint32_t readCapacity16();
  uint32_t readCapacity10();
  uint32_t readBlockDeviceCharacteristics();
  // The informational exceptions control page through MODE SENSE(6) into a
  // 16-byte record, or MODE SENSE(10) into a 20-byte one.
  uint32_t readIecPage6(uint8_t* record);
  uint32_t readIecPage10(uint8_t* record);
  // smartEnabled from the control page; 0 when one of the two forms answered.
  uint32_t readIecEnabled();
  // Applies enable or restore to MRIE (`mrieAt`) and the flags (`flagsAt`) of
  // a record, remembering the bytes first if nothing was saved yet.
  void editIecRecord(uint8_t* record, size_t mrieAt, size_t flagsAt, bool enable);

  TransportList<ScsiBridge> transports;
  uint8_t savedMrie = 0;
  uint8_t savedExceptionFlags = 0;
  uint8_t lastSelfTestScsiStatus = 0;
  bool iecPageUnsaved = true;
};

// An NVMe drive behind the operating system's SCSI translation: SMART is
// always there, self tests never are, and the verdict comes from REQUEST
// SENSE before the log page, without the platform's prediction.
class NvmeScsiProtocol : public ScsiProtocol {
 public:
  NvmeScsiProtocol();
  ~NvmeScsiProtocol() override;

  // ScsiProtocol::getProperties, then in the cache only: smartSupported
  // true, selfTestSupported and offlineImmediateSupported false. `out` has
  // been written before and does not show these three values.
  uint32_t getProperties(StorageProtocolProperties* out) override;
  // REQUEST SENSE, and on any failure the log page, whose status is the result.
  uint32_t getSmartStatus(uint8_t* healthy) override;
  // Nothing to switch; always 0.
  uint32_t enableSmart(uint8_t enable) override;
};
