// Helpers shared by the concrete protocols: byte assembly, the log checksum,
// the check of an identify block, ATA strings, vendor recognition and the
// names of ATA minor versions. None of them touches a device.
#pragma once

#include <cstdint>
#include <string>

// Little-endian assembly of a 48-bit address, b0 lowest.
uint64_t makeLba48(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3, uint8_t b4, uint8_t b5);
// The same for eight bytes; the caller puts the bytes in the order it needs.
uint64_t makeLba64(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3, uint8_t b4, uint8_t b5, uint8_t b6,
                   uint8_t b7);

// True when the 8-bit sum of `length` bytes is 0. A length of 0 passes; a
// null block or a negative length is refused.
bool isChecksumValid(const uint8_t* data, int64_t length);

// Checks a 512-byte IDENTIFY (PACKET) DEVICE block: not null, integrity word
// right when present, not all zero, and not a packet device (word 0 bit 15).
bool isValidIdentifyData(const uint8_t* block);

// Capacity in bytes as shown to the user, from 256 identify words.
uint64_t getIdentifyCapacityBytes(const uint16_t* identify);

// An ATA string of `wordCount` words: 2 x wordCount bytes, the two bytes of
// each word exchanged. Nothing is trimmed; NUL bytes stay.
std::string readAtaString(const void* words, uint32_t wordCount);
// The same, filling `out` in place.
void readAtaString(const void* words, uint32_t wordCount, std::string& out);

// The vendor a model string names. Throws std::out_of_range for an empty or
// all-blank model (the substring of step three has no position to start at);
// callers pass a model the device has reported.
std::string getVendorName(const std::string& model);

// Name of an ATA minor version (IDENTIFY word 81), or "UNRECOGNIZED_VERSION".
std::string getAtaMinorVersionName(int32_t value);
