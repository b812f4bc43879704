// The pass-through and property requests as every non-Windows provider takes
// them apart and answers them: malformed requests are refused before any
// device sees them, transfers stay inside the buffers the caller gave, and
// replies carry status, sense and data where the request asked for them.
#include "seam/disk_requests.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

namespace {

// A buffered SCSI request with room for 32 bytes of sense and 512 of data.
struct ScsiBlock {
  static constexpr DWORD kSenseAt = sizeof(SCSI_PASS_THROUGH);
  static constexpr DWORD kDataAt = kSenseAt + 32;
  std::vector<uint8_t> bytes = std::vector<uint8_t>(kDataAt + 512, 0);

  ScsiBlock(UCHAR dataIn, DWORD length) {
    SCSI_PASS_THROUGH request{};
    request.Length = sizeof(SCSI_PASS_THROUGH);
    request.CdbLength = 10;
    request.DataIn = dataIn;
    request.DataTransferLength = length;
    request.DataBufferOffset = kDataAt;
    request.SenseInfoLength = 32;
    request.SenseInfoOffset = kSenseAt;
    request.Cdb[0] = 0x28;
    set(request);
  }
  SCSI_PASS_THROUGH get() const {
    SCSI_PASS_THROUGH request;
    std::memcpy(&request, bytes.data(), sizeof(request));
    return request;
  }
  void set(const SCSI_PASS_THROUGH& request) { std::memcpy(bytes.data(), &request, sizeof(request)); }
  seam::ControlBuffers buffers() {
    const DWORD size = static_cast<DWORD>(bytes.size());
    return {bytes.data(), size, bytes.data(), size};
  }
};

TEST(ScsiPassThroughRequest, MalformedHeaderIsRefusedBeforeTheDeviceIsAsked) {
  ScsiBlock block(SCSI_IOCTL_DATA_IN, 512);
  SCSI_PASS_THROUGH request = block.get();
  request.CdbLength = 17;
  block.set(request);
  seam::ScsiPassThroughCall call;
  EXPECT_EQ(seam::takeScsiPassThrough(block.buffers(), false, false, call), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(ScsiPassThroughRequest, DeviceWithoutScsiCommandsIsNotSupported) {
  ScsiBlock block(SCSI_IOCTL_DATA_IN, 512);
  seam::ScsiPassThroughCall call;
  EXPECT_EQ(seam::takeScsiPassThrough(block.buffers(), false, false, call), DWORD{ERROR_NOT_SUPPORTED});
}

TEST(ScsiPassThroughRequest, DataReachingPastTheBuffersIsRefused) {
  ScsiBlock block(SCSI_IOCTL_DATA_IN, 513);
  seam::ScsiPassThroughCall call;
  EXPECT_EQ(seam::takeScsiPassThrough(block.buffers(), false, true, call), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(ScsiPassThroughRequest, SenseReachingPastTheBuffersIsRefused) {
  ScsiBlock block(SCSI_IOCTL_DATA_IN, 0);
  SCSI_PASS_THROUGH request = block.get();
  request.SenseInfoOffset = static_cast<ULONG>(block.bytes.size() - 8);
  block.set(request);
  seam::ScsiPassThroughCall call;
  EXPECT_EQ(seam::takeScsiPassThrough(block.buffers(), false, true, call), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(ScsiPassThroughRequest, WriteCarriesTheCallersBytesToTheDevice) {
  ScsiBlock block(SCSI_IOCTL_DATA_OUT, 4);
  std::memcpy(block.bytes.data() + ScsiBlock::kDataAt, "\x01\x02\x03\x04", 4);
  seam::ScsiPassThroughCall call;
  ASSERT_EQ(seam::takeScsiPassThrough(block.buffers(), false, true, call), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(call.direction, seam::TransferDirection::Out);
  EXPECT_EQ(call.data, (std::vector<uint8_t>{1, 2, 3, 4}));
}

TEST(ScsiPassThroughRequest, UnspecifiedDirectionWithDataIsARead) {
  ScsiBlock block(SCSI_IOCTL_DATA_UNSPECIFIED, 8);
  seam::ScsiPassThroughCall call;
  ASSERT_EQ(seam::takeScsiPassThrough(block.buffers(), false, true, call), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(call.direction, seam::TransferDirection::In);
}

TEST(ScsiPassThroughReply, CarriesStatusSenseAndTheBytesRead) {
  ScsiBlock block(SCSI_IOCTL_DATA_IN, 512);
  seam::ScsiPassThroughCall call;
  ASSERT_EQ(seam::takeScsiPassThrough(block.buffers(), false, true, call), DWORD{ERROR_SUCCESS});
  call.data[0] = 0xAB;
  call.data[99] = 0xCD;
  const std::vector<uint8_t> sense = {0x70, 0, 0x03, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x11, 0};
  DWORD bytes = 0;
  ASSERT_EQ(seam::giveScsiPassThrough(block.buffers(), call, 0x02, 100, sense, &bytes), DWORD{ERROR_SUCCESS});
  const SCSI_PASS_THROUGH reply = block.get();
  EXPECT_EQ(reply.ScsiStatus, 0x02);
  EXPECT_EQ(reply.DataTransferLength, 100u);
  EXPECT_EQ(reply.SenseInfoLength, sense.size());
  EXPECT_EQ(block.bytes[ScsiBlock::kSenseAt + 12], 0x11);
  EXPECT_EQ(block.bytes[ScsiBlock::kDataAt], 0xAB);
  EXPECT_EQ(block.bytes[ScsiBlock::kDataAt + 99], 0xCD);
  EXPECT_EQ(bytes, ScsiBlock::kDataAt + 100);
}

TEST(ScsiPassThroughReply, DirectReadLandsInTheCallersBuffer) {
  std::vector<uint8_t> target(16, 0);
  SCSI_PASS_THROUGH_DIRECT request{};
  request.Length = sizeof(SCSI_PASS_THROUGH);
  request.CdbLength = 6;
  request.DataIn = SCSI_IOCTL_DATA_IN;
  request.DataTransferLength = 16;
  request.DataBuffer = target.data();
  std::vector<uint8_t> bytes(sizeof(request));
  std::memcpy(bytes.data(), &request, sizeof(request));
  const seam::ControlBuffers buffers{bytes.data(), static_cast<DWORD>(bytes.size()), bytes.data(),
                                     static_cast<DWORD>(bytes.size())};
  seam::ScsiPassThroughCall call;
  ASSERT_EQ(seam::takeScsiPassThrough(buffers, true, true, call), DWORD{ERROR_SUCCESS});
  call.data[15] = 0x5A;
  DWORD written = 0;
  ASSERT_EQ(seam::giveScsiPassThrough(buffers, call, 0, 16, {}, &written), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(target[15], 0x5A);
  EXPECT_EQ(written, DWORD{sizeof(SCSI_PASS_THROUGH)});
}

TEST(ScsiPassThroughReply, OutputTooSmallForTheRecordIsInsufficientBuffer) {
  ScsiBlock block(SCSI_IOCTL_DATA_IN, 0);
  seam::ScsiPassThroughCall call;
  ASSERT_EQ(seam::takeScsiPassThrough(block.buffers(), false, true, call), DWORD{ERROR_SUCCESS});
  seam::ControlBuffers small = block.buffers();
  small.outSize = sizeof(SCSI_PASS_THROUGH) - 1;
  DWORD bytes = 0;
  EXPECT_EQ(seam::giveScsiPassThrough(small, call, 0, 0, {}, &bytes), DWORD{ERROR_INSUFFICIENT_BUFFER});
}

// A buffered ATA request with 512 bytes of data behind it.
std::vector<uint8_t> ataBlock(USHORT flags, DWORD length, DWORD dataSpace = 512) {
  ATA_PASS_THROUGH_EX request{};
  request.Length = sizeof(ATA_PASS_THROUGH_EX);
  request.AtaFlags = flags;
  request.DataTransferLength = length;
  request.DataBufferOffset = sizeof(ATA_PASS_THROUGH_EX);
  request.CurrentTaskFile[6] = 0xEC;
  std::vector<uint8_t> bytes(sizeof(request) + dataSpace, 0);
  std::memcpy(bytes.data(), &request, sizeof(request));
  return bytes;
}

TEST(AtaPassThroughRequest, ReadAndWriteAtOnceIsRefused) {
  std::vector<uint8_t> bytes = ataBlock(ATA_FLAGS_DATA_IN | ATA_FLAGS_DATA_OUT, 512);
  const seam::ControlBuffers buffers{bytes.data(), static_cast<DWORD>(bytes.size()), bytes.data(),
                                     static_cast<DWORD>(bytes.size())};
  seam::AtaPassThroughCall call;
  EXPECT_EQ(seam::takeAtaPassThrough(buffers, false, true, call), DWORD{ERROR_INVALID_PARAMETER});
}

TEST(AtaPassThroughRequest, DeviceWithoutAtaCommandsIsNotSupported) {
  std::vector<uint8_t> bytes = ataBlock(ATA_FLAGS_DATA_IN, 512);
  const seam::ControlBuffers buffers{bytes.data(), static_cast<DWORD>(bytes.size()), bytes.data(),
                                     static_cast<DWORD>(bytes.size())};
  seam::AtaPassThroughCall call;
  EXPECT_EQ(seam::takeAtaPassThrough(buffers, false, false, call), DWORD{ERROR_NOT_SUPPORTED});
}

TEST(AtaPassThroughReply, ReadLargerThanTheOutputBufferNeverWritesPastIt) {
  // The input block holds the whole transfer; the output block only the
  // record and half of the data.
  std::vector<uint8_t> in = ataBlock(ATA_FLAGS_DATA_IN, 512);
  std::vector<uint8_t> out(sizeof(ATA_PASS_THROUGH_EX) + 256 + 16, 0xEE);
  const DWORD outSize = static_cast<DWORD>(out.size() - 16);
  const seam::ControlBuffers buffers{in.data(), static_cast<DWORD>(in.size()), out.data(), outSize};
  seam::AtaPassThroughCall call;
  ASSERT_EQ(seam::takeAtaPassThrough(buffers, false, true, call), DWORD{ERROR_SUCCESS});
  std::fill(call.data.begin(), call.data.end(), 0x42);
  const UCHAR current[8] = {0, 1, 0, 0, 0, 0xA0, 0x50, 0};
  const UCHAR previous[8] = {};
  DWORD bytes = 0;
  ASSERT_EQ(seam::giveAtaPassThrough(buffers, call, current, previous, 512, &bytes), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(bytes, DWORD{sizeof(ATA_PASS_THROUGH_EX)});
  for (size_t i = outSize; i < out.size(); ++i) EXPECT_EQ(out[i], 0xEE) << "byte " << i;
  ATA_PASS_THROUGH_EX reply;
  std::memcpy(&reply, out.data(), sizeof(reply));
  EXPECT_EQ(reply.CurrentTaskFile[6], 0x50);
  EXPECT_EQ(reply.DataTransferLength, 512u);
}

TEST(AtaPassThroughReply, WriteReportsItsLengthAndReturnsNoData) {
  std::vector<uint8_t> bytes = ataBlock(ATA_FLAGS_DATA_OUT, 512);
  const seam::ControlBuffers buffers{bytes.data(), static_cast<DWORD>(bytes.size()), bytes.data(),
                                     static_cast<DWORD>(bytes.size())};
  seam::AtaPassThroughCall call;
  ASSERT_EQ(seam::takeAtaPassThrough(buffers, false, true, call), DWORD{ERROR_SUCCESS});
  const UCHAR registers[8] = {};
  DWORD written = 0;
  ASSERT_EQ(seam::giveAtaPassThrough(buffers, call, registers, registers, 0, &written), DWORD{ERROR_SUCCESS});
  ATA_PASS_THROUGH_EX reply;
  std::memcpy(&reply, bytes.data(), sizeof(reply));
  EXPECT_EQ(reply.DataTransferLength, 512u);
  EXPECT_EQ(written, DWORD{sizeof(ATA_PASS_THROUGH_EX)});
}

std::vector<uint8_t> propertyQuery(STORAGE_PROPERTY_ID id, STORAGE_QUERY_TYPE type) {
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = id;
  query.QueryType = type;
  std::vector<uint8_t> bytes(sizeof(query));
  std::memcpy(bytes.data(), &query, sizeof(query));
  return bytes;
}

TEST(StorageProperty, DeviceDescriptorPlacesTheStringsBehindTheRecordInOrder) {
  seam::StorageFacts facts;
  facts.vendor = "ATA";
  facts.product = "DISK";
  facts.serial = "S1";
  std::vector<uint8_t> in = propertyQuery(StorageDeviceProperty, PropertyStandardQuery);
  std::vector<uint8_t> out(256, 0);
  DWORD bytes = 0;
  ASSERT_EQ(seam::storagePropertyReply({in.data(), static_cast<DWORD>(in.size()), out.data(), 256}, facts, &bytes),
            DWORD{ERROR_SUCCESS});
  STORAGE_DEVICE_DESCRIPTOR d;
  std::memcpy(&d, out.data(), sizeof(d));
  EXPECT_EQ(d.Size, bytes);
  EXPECT_STREQ(reinterpret_cast<const char*>(out.data() + d.VendorIdOffset), "ATA");
  EXPECT_STREQ(reinterpret_cast<const char*>(out.data() + d.ProductIdOffset), "DISK");
  EXPECT_EQ(d.ProductRevisionOffset, 0u);
  EXPECT_STREQ(reinterpret_cast<const char*>(out.data() + d.SerialNumberOffset), "S1");
  EXPECT_GT(d.SerialNumberOffset, d.ProductIdOffset);
}

TEST(StorageProperty, ShortBufferGetsTheHeaderThatTellsTheSize) {
  seam::StorageFacts facts;
  facts.product = "A PRODUCT NAME";
  std::vector<uint8_t> in = propertyQuery(StorageDeviceProperty, PropertyStandardQuery);
  std::vector<uint8_t> out(sizeof(STORAGE_DESCRIPTOR_HEADER), 0);
  DWORD bytes = 0;
  ASSERT_EQ(seam::storagePropertyReply({in.data(), static_cast<DWORD>(in.size()), out.data(),
                                        static_cast<DWORD>(out.size())},
                                       facts, &bytes),
            DWORD{ERROR_SUCCESS});
  STORAGE_DESCRIPTOR_HEADER header;
  std::memcpy(&header, out.data(), sizeof(header));
  EXPECT_EQ(bytes, DWORD{sizeof(STORAGE_DESCRIPTOR_HEADER)});
  EXPECT_EQ(header.Size, sizeof(STORAGE_DEVICE_DESCRIPTOR) + facts.product.size() + 1);
}

TEST(StorageProperty, AdapterDescriptorCarriesTheAlignmentMaskAndBus) {
  seam::StorageFacts facts;
  facts.busType = 11;  // SATA
  facts.alignmentMask = 4095;
  std::vector<uint8_t> in = propertyQuery(StorageAdapterProperty, PropertyStandardQuery);
  std::vector<uint8_t> out(sizeof(STORAGE_ADAPTER_DESCRIPTOR), 0);
  DWORD bytes = 0;
  ASSERT_EQ(seam::storagePropertyReply({in.data(), static_cast<DWORD>(in.size()), out.data(),
                                        static_cast<DWORD>(out.size())},
                                       facts, &bytes),
            DWORD{ERROR_SUCCESS});
  STORAGE_ADAPTER_DESCRIPTOR a;
  std::memcpy(&a, out.data(), sizeof(a));
  EXPECT_EQ(a.AlignmentMask, 4095u);
  EXPECT_EQ(a.BusType, 11);
}

TEST(StorageProperty, OtherPropertiesAreNotAnsweredAndExistsQueriesReturnNothing) {
  seam::StorageFacts facts;
  std::vector<uint8_t> out(64, 0);
  DWORD bytes = 7;
  std::vector<uint8_t> other = propertyQuery(static_cast<STORAGE_PROPERTY_ID>(50), PropertyStandardQuery);
  EXPECT_EQ(seam::storagePropertyReply({other.data(), static_cast<DWORD>(other.size()), out.data(), 64}, facts,
                                       &bytes),
            DWORD{ERROR_INVALID_FUNCTION});
  std::vector<uint8_t> exists = propertyQuery(StorageDeviceProperty, PropertyExistsQuery);
  EXPECT_EQ(seam::storagePropertyReply({exists.data(), static_cast<DWORD>(exists.size()), out.data(), 64}, facts,
                                       &bytes),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(bytes, 0u);
}

}  // namespace
