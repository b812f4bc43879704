// The names of the T10 version descriptors that a standard INQUIRY answer
// lists (bytes 58 to 73): which standards the device claims to follow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// True with *name set when `descriptor` is a known version descriptor. The
// table is built on the first call and stays for the life of the process.
bool findVersionDescriptorName(uint16_t descriptor, std::string* name);

// The number of known descriptors.
size_t versionDescriptorCount();
