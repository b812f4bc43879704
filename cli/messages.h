// English words for everything the module says to a person: message keys,
// name keys, description keys and result codes, and the rules by which a
// message that joins keys and data is turned into a sentence.
#pragma once

#include <cstdint>
#include <string>

namespace hwc {

// The text of one key, or null when the table has none.
const char* findText(const std::string& key);

// The text of one key; an unknown key is shown as it stands.
std::string textOf(const std::string& key);

// A message of a run as a person reads it. A message is a key, or a key
// joined with data ("READING_SECTOR 1234", "TOO_MANY_BAD_SECTORS_FOUND: 10"),
// or several such pieces joined by ". |". Each key is looked up; the data is
// kept; unknown keys fall back to themselves.
std::string describeMessage(const std::string& message);

// A value of a component's description: a key ("LOCAL_DRIVES"), a key and a
// parent ("RAID_ATTACHED_DRIVES\\X - 1"), a yes/no ("T"/"F"), a name with
// display marks ("_CEPH_|JOURNAL") or plain text, which stays as it is.
std::string describeValue(const std::string& value);

// The name of a result code ("SUCCESS") and its words ("Passed"). Codes that
// are no test result give "UNKNOWN_RESULT" and "Unknown result <code>".
std::string resultKey(uint32_t code);
std::string resultText(uint32_t code);

// The words of a log level of MessageLog::log.
std::string levelText(uint32_t level);

}  // namespace hwc

namespace hwc {

// The words of a status of the recover-bad-sectors tool, as it stores them in
// PartitionFinish and DeviceFinish.
std::string toolStatusText(uint32_t status);

}  // namespace hwc
