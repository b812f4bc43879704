// The fuzzed wrappers: each action of the stream on an ATA device and a SCSI
// target, and the pass-through once the stream is spent.
#include "sim/fuzzed_device.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

namespace sim {
namespace {

// Fills data-in with 0xAA and answers status 0x50, sense 70 00 05.
class Answering : public AtaDevice, public ScsiTarget {
 public:
  AtaResponse executeAta(const AtaRequest& request) override {
    ++calls;
    if (request.data != nullptr) std::fill(request.data, request.data + request.length, 0xAA);
    AtaResponse response;
    response.out.status = 0x50;
    response.transferred = request.length;
    return response;
  }
  ScsiResponse executeScsi(const ScsiRequest& request) override {
    ++calls;
    if (request.data != nullptr) std::fill(request.data, request.data + request.length, 0xAA);
    ScsiResponse response;
    response.status = 0x02;
    response.sense = {0x70, 0x00, 0x05};
    response.transferred = request.length;
    return response;
  }
  int calls = 0;
};

struct Rig {
  explicit Rig(std::vector<uint8_t> bytes)
      : stream(std::make_shared<FuzzStream>(bytes.data(), bytes.size())),
        ata(inner, stream),
        scsi(inner, stream) {}
  std::shared_ptr<Answering> inner = std::make_shared<Answering>();
  std::shared_ptr<FuzzStream> stream;
  FuzzedAtaDevice ata;
  FuzzedScsiTarget scsi;
  std::array<uint8_t, 8> buffer{};

  AtaResponse sendAta() {
    AtaRequest request;
    request.direction = Direction::In;
    request.data = buffer.data();
    request.length = buffer.size();
    return ata.executeAta(request);
  }
  ScsiResponse sendScsi() {
    const uint8_t cdb[6] = {0x12, 0, 0, 0, 8, 0};
    ScsiRequest request;
    request.cdb = cdb;
    request.cdbLength = 6;
    request.direction = Direction::In;
    request.data = buffer.data();
    request.length = buffer.size();
    return scsi.executeScsi(request);
  }
};

TEST(FuzzedDevice, SpentStreamPassesEveryCommandUnchanged) {
  Rig rig({});
  const AtaResponse response = rig.sendAta();
  EXPECT_EQ(response.completion, Completion::Done);
  EXPECT_EQ(response.out.status, 0x50);
  EXPECT_EQ(rig.buffer[7], 0xAA);
  EXPECT_EQ(rig.sendScsi().sense, (std::vector<uint8_t>{0x70, 0x00, 0x05}));
  EXPECT_EQ(rig.inner->calls, 2);
}

TEST(FuzzedDevice, NoAnswerNeverReachesTheDevice) {
  Rig rig({5, 1, 5, 2});
  EXPECT_EQ(rig.sendAta().completion, Completion::NoDevice);
  EXPECT_EQ(rig.sendScsi().completion, Completion::TransportError);
  EXPECT_EQ(rig.inner->calls, 0);
}

TEST(FuzzedDevice, ReplacedDataComesFromTheStreamAsFarAsItReaches) {
  Rig rig({4, 1, 2, 3});
  rig.sendAta();
  EXPECT_EQ(rig.buffer, (std::array<uint8_t, 8>{1, 2, 3, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}));
}

TEST(FuzzedDevice, FlipChangesTheNamedByteOfTheData) {
  // One flip (choice 3), into the data (even byte), at 5 % 8, value 0x11.
  Rig rig({3, 0, 5, 0, 0x11});
  rig.sendAta();
  EXPECT_EQ(rig.buffer[5], 0x11);
  EXPECT_EQ(rig.buffer[4], 0xAA);
}

TEST(FuzzedDevice, StatusAndSenseComeFromTheStream) {
  Rig rig({6, 3, 0x72, 0x00, 0x03});
  const ScsiResponse response = rig.sendScsi();
  EXPECT_EQ(response.status, 0x02);
  EXPECT_EQ(response.sense, (std::vector<uint8_t>{0x72, 0x00, 0x03}));
}

TEST(FuzzedDevice, ShortTransferIsNeverLongerThanTheRequest) {
  Rig rig({7, 0xFF, 0xFF});
  EXPECT_LE(rig.sendAta().transferred, 8u);
}

}  // namespace
}  // namespace sim
