// Answers of a SCSI disk for the protocol tests: INQUIRY data, VPD pages,
// capacity, mode and log pages, built byte by byte as a device sends them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "commands/scsi/sense_data.h"
#include "protocols/scsi_protocol.h"
#include "sim/windows/face.h"
#include "testing/scripted_scsi_bridge.h"

namespace scsitest {

inline mstest::ScsiAnswer withData(const std::vector<uint8_t>& data) {
  mstest::ScsiAnswer answer;
  answer.data = data;
  return answer;
}

inline mstest::ScsiAnswer checkCondition(const std::vector<uint8_t>& sense) {
  mstest::ScsiAnswer answer;
  answer.scsiStatus = 0x02;
  answer.sense = sense;
  return answer;
}

inline void putText(std::vector<uint8_t>& data, size_t at, size_t width, const std::string& text) {
  for (size_t i = 0; i < width; ++i) data[at + i] = i < text.size() ? static_cast<uint8_t>(text[i]) : ' ';
}

// Standard INQUIRY data: 36 bytes, or 74 with eight version descriptors
// (bytes 58 to 73, big-endian) when any are given.
inline std::vector<uint8_t> standardInquiry(const std::string& vendor, const std::string& product,
                                            const std::string& revision, uint8_t version,
                                            std::vector<uint16_t> descriptors = {}) {
  std::vector<uint8_t> data(descriptors.empty() ? 36 : 74, 0);
  data[2] = version;
  data[3] = 0x02;
  data[4] = static_cast<uint8_t>(data.size() - 5);
  putText(data, 8, 8, vendor);
  putText(data, 16, 16, product);
  putText(data, 32, 4, revision);
  descriptors.resize(descriptors.empty() ? 0 : 8, 0);
  for (size_t i = 0; i < descriptors.size(); ++i) {
    data[58 + 2 * i] = static_cast<uint8_t>(descriptors[i] >> 8);
    data[59 + 2 * i] = static_cast<uint8_t>(descriptors[i]);
  }
  return data;
}

// Unit serial number page (0x80): [1] 0x80, [3] length, [4..] serial.
inline std::vector<uint8_t> serialPage(const std::string& serial) {
  std::vector<uint8_t> data(4 + serial.size(), 0);
  data[1] = 0x80;
  data[3] = static_cast<uint8_t>(serial.size());
  std::memcpy(data.data() + 4, serial.data(), serial.size());
  return data;
}

// READ CAPACITY(16): [0..7] last LBA, [8..11] block length, [13] as given.
inline std::vector<uint8_t> capacity16(uint64_t lastLba, uint32_t blockLength, uint8_t byte13) {
  std::vector<uint8_t> data(32, 0);
  for (int i = 0; i < 8; ++i) data[i] = static_cast<uint8_t>(lastLba >> (8 * (7 - i)));
  for (int i = 0; i < 4; ++i) data[8 + i] = static_cast<uint8_t>(blockLength >> (8 * (3 - i)));
  data[13] = byte13;
  return data;
}

// READ CAPACITY(10): [0..3] last LBA, [4..7] block length.
inline std::vector<uint8_t> capacity10(uint32_t lastLba, uint32_t blockLength) {
  std::vector<uint8_t> data(8, 0);
  for (int i = 0; i < 4; ++i) data[i] = static_cast<uint8_t>(lastLba >> (8 * (3 - i)));
  for (int i = 0; i < 4; ++i) data[4 + i] = static_cast<uint8_t>(blockLength >> (8 * (3 - i)));
  return data;
}

// Block device characteristics page (0xB1): [1] 0xB1, [4..5] rotation rate.
inline std::vector<uint8_t> characteristicsPage(uint16_t rate) {
  std::vector<uint8_t> data(64, 0);
  data[1] = 0xB1;
  data[3] = 0x3C;
  data[4] = static_cast<uint8_t>(rate >> 8);
  data[5] = static_cast<uint8_t>(rate);
  return data;
}

// MODE SENSE(6) of the informational exceptions control page: 4-byte header,
// page at 4: [4] 0x9C (PS, 0x1C), [5] 0x0A, [6] flags, [7] MRIE.
inline std::vector<uint8_t> modeSense6(uint8_t flags, uint8_t mrie) {
  std::vector<uint8_t> data(16, 0);
  data[0] = 15;
  data[4] = 0x9C;
  data[5] = 0x0A;
  data[6] = flags;
  data[7] = mrie;
  return data;
}

// The ten-byte form: 8-byte header, page at 8.
inline std::vector<uint8_t> modeSense10(uint8_t flags, uint8_t mrie) {
  std::vector<uint8_t> data(20, 0);
  data[1] = 18;
  data[8] = 0x9C;
  data[9] = 0x0A;
  data[10] = flags;
  data[11] = mrie;
  return data;
}

// The five answers of a getProperties that goes through every step.
inline void queueDisk(const std::shared_ptr<mstest::ScriptedScsiBridge>& bridge, uint64_t lastLba,
                      uint32_t blockLength, uint8_t byte13, uint16_t rate, uint8_t iecFlags, uint8_t mrie) {
  bridge->queue(withData(standardInquiry("SEAGATE", "ST4000NM0025", "E001", 6)));
  bridge->queue(withData(serialPage("ZC1A2B3C")));
  bridge->queue(withData(capacity16(lastLba, blockLength, byte13)));
  bridge->queue(withData(characteristicsPage(rate)));
  bridge->queue(withData(modeSense6(iecFlags, mrie)));
}

// A protocol on one scripted transport, on a PC without disks (so that the
// platform's failure prediction fails with 34).
class ScsiProtocolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::uninstallMachine();
    protocol.addTransport(bridge);
  }
  void TearDown() override { sim::uninstallMachine(); }

  // getProperties on a disk of `lastLba` + 1 sectors of 512 bytes.
  void learn(uint64_t lastLba) {
    queueDisk(bridge, lastLba, 512, 0, 7200, 0, 6);
    StorageProtocolProperties out;
    ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
    bridge->sent.clear();
  }

  std::shared_ptr<mstest::ScriptedScsiBridge> bridge = std::make_shared<mstest::ScriptedScsiBridge>();
  ScsiProtocol protocol;
};

}  // namespace scsitest
