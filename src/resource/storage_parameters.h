// The test parameters of the storage module: section "STORAGE" of the
// host's TestParameters, the keys each test reads, and nothing else.
#pragma once

#include <string>
#include <vector>

#include "module_storage/item_id.h"

constexpr char kParameterSection[] = "STORAGE";

// Drive self test (1.1.6): decimal, below 256.
constexpr char kParameterSelfTestCode[] = "SEC_NUM";
constexpr char kParameterSelfTestCount[] = "SEC_COUNT";
// Device read test (1.1.11): GiB at the start, around the middle, at the end;
// and 0 or 1 for a whole-disk read.
constexpr char kParameterInitialSize[] = "INITIAL_SIZE";
constexpr char kParameterCentralSize[] = "CENTRAL_SIZE";
constexpr char kParameterFinalSize[] = "FINAL_SIZE";
constexpr char kParameterWholeDiskRead[] = "WHOLE_DISK_READ";

// The keys a test reads from the section, in table order; empty for a test
// that reads none. Only packedId counts.
std::vector<std::string> acceptedParameters(const ItemId& test);
