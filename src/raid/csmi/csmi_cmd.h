// CSMI requests as objects: one heap buffer per request, starting with the
// miniport header (SRB_IO_CONTROL) and followed by the CSMI record of the
// control code. The layouts are those of win32/csmi.h; carrying a request to
// the driver is CsmiSend's business, reading the answer the caller's.
#pragma once

#include <cstdint>
#include <memory>

#include "win32/csmi.h"

// The time-out every request carries, in seconds; the driver honours it.
constexpr ULONG kCsmiTimeoutSeconds = 60;

class CsmiCmd {
 public:
  virtual ~CsmiCmd();
  CsmiCmd(const CsmiCmd&) = delete;
  CsmiCmd& operator=(const CsmiCmd&) = delete;

  // The whole request, header first.
  uint8_t* data() { return buffer.get(); }
  const uint8_t* data() const { return buffer.get(); }

  // Header fields: 0 HeaderLength 4 Signature[8] 12 Timeout 16 ControlCode
  // 20 ReturnCode 24 Length.
  ULONG headerLength() const;
  void setHeaderLength(ULONG value);
  ULONG controlCode() const;
  ULONG returnCode() const;
  void setReturnCode(ULONG value);
  ULONG timeout() const;
  // Before sending: the whole buffer's size; once sent: the bytes behind the
  // header.
  ULONG length() const;
  void setLength(ULONG value);

 protected:
  // Zeroes `size` bytes and writes the header: the size as the length, the
  // code, the signature (seven letters and a NUL) and the time-out.
  CsmiCmd(size_t size, ULONG code, const char* signature);

 private:
  SRB_IO_CONTROL& header();
  const SRB_IO_CONTROL& header() const;

  std::unique_ptr<uint8_t[]> buffer;
};

// Controller configuration (code 2, "CSMIALL"), 208 bytes.
class CsmiGetCntrlConfig : public CsmiCmd {
 public:
  CsmiGetCntrlConfig();
  CSMI_SAS_CNTLR_CONFIG_BUFFER& record() { return *reinterpret_cast<CSMI_SAS_CNTLR_CONFIG_BUFFER*>(data()); }
};

// RAID information (code 10, "CSMIARY"), 128 bytes.
class CsmiGetRaidInfo : public CsmiCmd {
 public:
  CsmiGetRaidInfo();
  CSMI_SAS_RAID_INFO_BUFFER& record() { return *reinterpret_cast<CSMI_SAS_RAID_INFO_BUFFER*>(data()); }
};

// Configuration of one RAID set (code 11, "CSMIARY"): 200 bytes with room for
// one drive entry, 136 more for each further drive of the set.
class CsmiGetRaidConfig : public CsmiCmd {
 public:
  CsmiGetRaidConfig(ULONG setIndex, ULONG drivesPerSet);
  CSMI_SAS_RAID_CONFIG_BUFFER& record() { return *reinterpret_cast<CSMI_SAS_RAID_CONFIG_BUFFER*>(data()); }
  // The drive entries the buffer has room for.
  ULONG driveRoom() const { return room; }
  // Entry `index` of the set's drive list; the caller keeps below driveRoom().
  const CSMI_SAS_RAID_DRIVES& drive(size_t index) const;

 private:
  ULONG room;
};

// Phy information (code 20, "CSMISAS"), 2080 bytes.
class CsmiGetPhyInfo : public CsmiCmd {
 public:
  CsmiGetPhyInfo();
  CSMI_SAS_PHY_INFO_BUFFER& record() { return *reinterpret_cast<CSMI_SAS_PHY_INFO_BUFFER*>(data()); }
};

// SSP pass-through (code 24, "CSMISAS"): `dataLength` + 372 bytes, the data
// at offset 368.
class CsmiSspPassthrough : public CsmiCmd {
 public:
  explicit CsmiSspPassthrough(ULONG dataLength);
  CSMI_SAS_SSP_PASSTHRU_BUFFER& record() { return *reinterpret_cast<CSMI_SAS_SSP_PASSTHRU_BUFFER*>(data()); }
  uint8_t* payload() { return data() + offsetof(CSMI_SAS_SSP_PASSTHRU_BUFFER, bDataBuffer); }
  ULONG payloadRoom() const { return dataRoom; }

 private:
  ULONG dataRoom;
};

// STP pass-through (code 25, "CSMISAS"): `dataLength` + 168 bytes, the data
// at offset 164.
class CsmiStpPassthrough : public CsmiCmd {
 public:
  explicit CsmiStpPassthrough(ULONG dataLength);
  CSMI_SAS_STP_PASSTHRU_BUFFER& record() { return *reinterpret_cast<CSMI_SAS_STP_PASSTHRU_BUFFER*>(data()); }
  uint8_t* payload() { return data() + offsetof(CSMI_SAS_STP_PASSTHRU_BUFFER, bDataBuffer); }
  ULONG payloadRoom() const { return dataRoom; }

 private:
  ULONG dataRoom;
};
