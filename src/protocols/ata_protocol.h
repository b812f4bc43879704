// The ATA protocol: what a test asks of a drive, in ATA commands carried by an
// ordered list of transports that reorders itself. Building the commands is
// left to commands/ata, carrying them to the bridges below.
#pragma once

#include <array>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <vector>

#include "commands/ata/ata_cmd.h"
#include "commands/bridges/ata_bridge.h"
#include "protocols/storage_protocol.h"
#include "protocols/transport_list.h"

// One attribute of the SMART data, with its warranty threshold.
struct SmartAttribute {
  uint8_t id = 0;
  uint8_t value = 0;
  uint8_t worst = 0;
  std::array<uint8_t, 4> raw{};  // bytes 5 to 8 of the entry, as they stand
  uint8_t threshold = 0;         // 0 when the threshold block has no entry of this id
};

class AtaProtocol : public StorageProtocol {
 public:
  AtaProtocol();
  ~AtaProtocol() override;

  // The first transport's handle; null while the list is empty.
  HANDLE getHandle() override;
  // IDENTIFY DEVICE into the cache, then SMART READ DATA for the off-line and
  // self-test capabilities. 2 for a null `out`, 35 for a rejected block; a
  // failed IDENTIFY leaves `out` untouched.
  uint32_t getProperties(StorageProtocolProperties* out) override;
  // Needs a cached logicalSectorSize of at least 512 (2 otherwise). 75 for a
  // media error (Error UNC or bit 7), 88 for any other device error.
  uint32_t readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) override;
  // The low raw byte of the last attribute 194; unchanged without one.
  uint32_t getTemperature(uint8_t* celsius) override;
  // SMART EXECUTE OFF-LINE IMMEDIATE; 108 for ABRT, 109 for IDNF, 88 for
  // another device error.
  uint32_t startSelfTest(uint8_t code, uint8_t count) override;
  uint32_t getSelfTestProgress(uint8_t* percentDone) override;
  uint32_t getSelfTestStatus(uint8_t* status) override;
  uint32_t abortSelfTest() override;
  // From the extended self-test log when the drive has one, otherwise from
  // the SMART self-test log; 1 when the log does not pass its checks.
  uint32_t getSelfTestFailingLba(uint64_t* lba) override;
  // SMART RETURN STATUS, falling back to the platform's failure prediction
  // when the registers do not carry a verdict.
  uint32_t getSmartStatus(uint8_t* healthy) override;
  uint32_t enableSmart(uint8_t enable) override;
  // getProperties on a scratch record; reaches the device every time.
  bool isAccessible() override;
  // WRITE UNCORRECTABLE EXT of one pseudo-uncorrectable sector.
  uint32_t writeUncorrectable(uint64_t lba) override;
  // Refreshes the properties, then writes one sector of logicalSectorSize.
  uint32_t writeSector(uint64_t lba, void* buffer) override;
  // The attributes of the SMART data with their thresholds; 1 for a null `out`.
  virtual uint32_t readSmartAttributes(std::vector<SmartAttribute>* out);

  // False, dropping the reference, when the same bridge object is already in
  // the list; otherwise the bridge goes to the end.
  bool addTransport(std::shared_ptr<AtaBridge> transport);
  // Offers `cmd` to each transport in turn, the record restored before each
  // new attempt; the one that carried it moves to the front. 1 with no
  // transport, otherwise the last failure.
  uint32_t sendCommand(AtaCmd& cmd);

  // Reads `pageCount` pages of a log: 3 and 7 through READ LOG EXT, the
  // others through SMART READ LOG. 2 for a null buffer.
  uint32_t readLog(uint8_t logAddress, uint16_t pageCount, void* buffer, uint16_t* pagesRead);
  // The page count the log directories give `logAddress`; the two directories
  // are read once in the life of the protocol.
  uint16_t getLogPageCount(uint8_t logAddress);
  // READ LOG EXT, page by page, each page up to five times; a page that never
  // passes its checksum is skipped, so *pagesRead may end below pageCount.
  uint32_t readLogExt(uint8_t logAddress, uint16_t pageCount, void* buffer, uint16_t* pagesRead);
  // One SMART READ LOG; 88 when its first page fails the checksum or the
  // version byte.
  uint32_t readSmartLog(uint8_t logAddress, uint16_t pageCount, void* buffer, uint16_t* pagesRead);

  // The transports in their current order.
  const TransportList<AtaBridge>& getTransports() const { return transports; }

 private:
  // Reads the identify block's fields into the cache.
  void parseIdentify(const uint8_t* block);
  // Sends SMART READ DATA into `block`: the transport's status, or 88 for a
  // device error.
  uint32_t readSmartData(uint8_t* block);
  // The status of a read once the command has completed.
  static uint32_t readResult(uint32_t sent, const AtaCmd& cmd);
  uint32_t readFailingLbaFromExtLog(uint16_t pages, uint64_t* lba);
  uint32_t readFailingLbaFromSmartLog(uint64_t* lba);

  TransportList<AtaBridge> transports;
  std::map<uint8_t, uint16_t> logPageCounts;
};
