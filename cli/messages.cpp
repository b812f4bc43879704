// The front end's one text table. The module speaks in upper-case keys and
// never translates them; every key it can send lives here with its English
// words, so that a new key is added in one place.
#include "messages.h"

#include <map>

#include "module_storage/result_codes.h"
#include "tool_status.h"

namespace hwc {
namespace {

struct TextRow {
  const char* key;
  const char* text;
};

// Grouped by what sends the key; keys are unique over the whole table.
const TextRow kTexts[] = {
    // Result codes, by name.
    {"SUCCESS", "Passed"},
    {"FAILED", "Failed"},
    {"NOT_APPLICABLE", "Not applicable"},
    {"ABORTED", "Aborted"},
    {"WARNING", "Warning"},
    {"INVALID", "Invalid"},

    // The module, its diagnostics and tests: names and tooltips.
    {"STORAGE", "Storage"},
    {"HD", "Hard disk"},
    {"QUICK_TESTS", "Quick Storage diagnostic"},
    {"QUICK_TESTS_TOOLTIP", "Short checks of each disk: SMART status, targeted reads, seeks and the drive's own self tests"},
    {"EXTENDED_TESTS", "Extended Server Storage diagnostic"},
    {"EXTENDED_TESTS_TOOLTIP", "Long checks of each disk: extended seeks, the drive's extended self test and a write test"},
    {"SMART_STATUS_TEST", "SMART Status Test"},
    {"SMART_STATUS_TEST_TOOLTIP", "Asks the drive whether its SMART health check has crossed a threshold"},
    {"TARGETED_READ_TEST", "Targeted Read Test"},
    {"TARGETED_READ_TEST_TOOLTIP", "Reads the sectors that the drive's own logs name as suspect"},
    {"RANDOM_SEEK_TEST", "Random Seek Test"},
    {"RANDOM_SEEK_TEST_TOOLTIP", "Reads sectors at random places over the whole disk"},
    {"FUNNEL_SEEK_TEST", "Funnel Seek Test"},
    {"FUNNEL_SEEK_TEST_TOOLTIP", "Reads sectors from both ends of the disk, closing in on the middle"},
    {"SHORT_SELF_TEST", "SMART Short Self-Test"},
    {"SHORT_SELF_TEST_TOOLTIP", "Has the drive run its short self test"},
    {"DRIVE_SELF_TEST", "SMART Drive Self-Test"},
    {"DRIVE_SELF_TEST_TOOLTIP", "Has the drive run the self test chosen by its code"},
    {"DEFAULT_SELF_TEST", "Default Self-Test"},
    {"DEFAULT_SELF_TEST_TOOLTIP", "Has the drive run the self test that suits it"},
    {"DEVICE_READ_TEST", "Device Read Test"},
    {"DEVICE_READ_TEST_TOOLTIP", "Reads the start, the middle and the end of an eMMC or NVMe device, or all of it"},
    {"EXTENDED_RANDOM_SEEK_TEST", "Extended Random Seek Test"},
    {"EXTENDED_RANDOM_SEEK_TEST_TOOLTIP", "Reads sectors at random places over the whole disk, for longer"},
    {"EXTENDED_FUNNEL_SEEK_TEST", "Extended Funnel Seek Test"},
    {"EXTENDED_FUNNEL_SEEK_TEST_TOOLTIP", "Reads sectors from both ends of the disk to the middle, for longer"},
    {"EXTENDED_SELF_TEST", "Extended Self-Test"},
    {"EXTENDED_SELF_TEST_TOOLTIP", "Has the drive run its extended self test"},
    {"DEVICE_WRITE_TEST", "Device Write Test"},
    {"EXTENDED_DEVICE_WRITE_TEST_TOOLTIP", "Writes and verifies temporary files on the volumes of an eMMC or NVMe device"},

    // The tool and its operations.
    {"RECOVER_BAD_SECTORS", "Recover Bad Sectors"},
    {"SEARCH_FOR_AND_RECOVER_BAD_SECTORS_THAT_MAY_BE_PRESENT_IN_YOUR_STORAGE_DEVICES",
     "Search for and recover bad sectors that may be present in your storage devices"},
    {"SCAN_TOOL", "Bad-sector scan"},
    {"SCAN_AND_FIX_TOOL", "Bad-sector scan and repair"},
    {"CHECK_FILESYSTEM_TOOL", "File-system check"},
    {"SCHEDULER_TITLE", "Check the system partition at the next start"},
    {"SCHEDULER_DESCRIPTION",
     "This partition holds the running operating system and cannot be checked now. "
     "Answer 1 to schedule a check for the next start, 2 to leave it"},
    {"CHECK_COMPLETED", "File-system check completed"},
    {"PARTITION_LOCKED", "The partition is locked"},
    {"CHECK_FAILED", "File-system check failed"},
    {"BAD_SECTOR_TOOL_STARTED", "Bad-sector scan started:"},
    {"BAD_SECTOR_FOUND_AT", "Bad sector found at"},
    {"BAD_SECTOR_FIXED_AT", "Bad sector repaired at"},
    {"BAD_SECTOR_NOT_FIXED_AT", "Bad sector could not be repaired at"},
    {"BAD_SECTOR_TOOL_PROGRESS", "Bad-sector scan progress"},
    {"BAD_SECTOR_TOOL_FINISHED", "Bad-sector scan finished:"},
    {"BAD_SECTOR_TOOL_ABORTED", "Bad-sector scan aborted"},

    // Messages of a run: announcements and warnings.
    {"TEST_ABORTED_BECAUSE_A_SYSTEM_EVENT_THAT_COULD_COMPROMISE_THE_OUTCOME_HAS_HAPPENED",
     "Test aborted because a system event that could compromise the outcome has happened"},
    {"INCONCLUSIVE_RESULT", "Inconclusive result"},
    {"HARD_DISK_IS_PASSWORD_PROTECTED", "The hard disk is password protected"},
    {"TRY_TO_DISABLE_THE_PASSWORD_PROTECTION", "Try to disable the password protection"},
    {"VOLUME_RAN_OUT_OF_SPACE", "The volume ran out of space"},
    {"OTHER_SELF_TEST_ALREADY_IN_PROGRESS", "Another self test is already in progress"},
    {"OTHER_SELF_TEST_ALREADY_IN_PROGRESS_WAS_ABORTED", "Another self test that was in progress has been aborted"},
    {"CANNOT_ABORT_OTHER_SELF_TEST_ALREADY_IN_PROGRESS", "Another self test is in progress and could not be aborted"},
    {"SELF_TEST_ABORTED_BY_EXTERNAL_FACTOR", "The self test was stopped from outside the drive"},
    {"TEST_FINISHED_WITH_TIMEOUT", "The test ran out of time"},
    {"VOLUME_SPACE_ALLOCATION_ALERT",
     "The write test allocates space for temporary files on the volumes of this device and deletes them "
     "afterwards. Answer 1 to agree, 0 otherwise; the test goes on either way"},

    // Messages of a run: faults of the device.
    {"READ_OPERATION_FAILED", "A read operation failed"},
    {"WRITE_OPERATION_FAILED", "A write operation failed"},
    {"READING_SECTOR", "Error reading sector"},
    {"DEVICE_COMMUNICATION_FAILURE", "Communication with the device failed"},
    {"TOO_MANY_BAD_SECTORS_FOUND", "Too many bad sectors found"},
    {"CRITICAL_INTERRUPTION_DETECTED", "The self test stopped on a fatal error"},
    {"UNKNOWN_ERROR_DETECTED", "A test element of unknown kind failed"},
    {"ELECTRICAL_ERROR_DETECTED", "An electrical element of the drive failed"},
    {"SEEK_ERROR_DETECTED", "A servo or seek element of the drive failed"},
    {"READ_ERROR_DETECTED", "A read element of the drive failed"},
    {"HANDLING_DAMAGE_DETECTED", "The drive reports handling damage"},
    {"PATTERN_VERIFICATION_FAILED", "Data written did not read back the same"},

    // Messages of a run: the test can't be done.
    {"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", "This test is not supported on an external device"},
    {"TEST_NOT_SUPPORTED_IN_SSD", "This test is not supported on a solid-state drive"},
    {"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", "This test is not supported on this device"},
    {"SMART_NOT_SUPPORTED", "The device does not support SMART"},
    {"CANNOT_ENABLE_SMART", "SMART could not be switched on"},
    {"CANNOT_ACCESS_DEVICE", "The device cannot be accessed"},
    {"CANNOT_PERFORM_SELF_TEST", "The device cannot perform the self test"},
    {"CANNOT_READ_ANYTHING_FROM_LOGS", "Nothing could be read from the drive's logs"},
    {"INVALID_PARAMETER_VALUE", "A parameter value is not valid for this device"},
    {"NO_VALID_VOLUME", "The device has no volume the test can use"},
    {"VOLUME_ACCESS_ERROR", "A volume of the device could not be accessed"},

    // Description of a device.
    {"UDI", "Device identity"},
    {"MANUFACTURER", "Manufacturer"},
    {"MODEL", "Model"},
    {"SERIAL", "Serial number"},
    {"FIRMWARE", "Firmware"},
    {"SIZE", "Size"},
    {"ROTATION_RATE", "Rotation rate"},
    {"RPM", "rpm"},
    {"CACHE", "Cache"},
    {"TEMPERATURE", "Temperature"},
    {"PHYSICAL_SECTOR_SIZE", "Physical sector size"},
    {"LOGICAL_SECTOR_SIZE", "Logical sector size"},
    {"LOGICAL_SECTORS", "Logical sectors"},
    {"SUPPORTED_STANDARDS", "Supported standards"},
    {"SPEC_VERSION", "Standard version"},
    {"PARTITION_SCHEMA", "Partition scheme"},
    {"UNALLOCATED", "Unallocated"},
    {"LOCAL_DRIVES", "Local drives"},
    {"USB_DRIVES", "USB drives"},
    {"RAID_ATTACHED_DRIVES", "RAID-attached drives"},
    {"VERSION_NOT_REPORTED", "Not reported"},
    {"UNRECOGNIZED_VERSION", "Unrecognized version"},
    {"PARTITION", "Partition"},
    {"INDEX", "Index"},
    {"PARTITION_TYPE", "Partition type"},
    {"FILE_SYSTEM", "File system"},
    {"LABEL", "Label"},
    {"MOUNT_POINT", "Mount point"},
    {"USED", "Used"},
    {"FREE", "Free"},
    {"PRIMARY", "Primary"},
    {"EXTENDED", "Extended"},
    {"LOGICAL", "Logical"},
    {"MBR", "MBR"},
    {"GPT", "GPT"},
    {"RAW", "Raw"},
    {"UNKNOWN", "Unknown"},

    // Description of a RAID controller and its disks.
    {"PLATFORM", "Platform"},
    {"IMSM_CAPABILITIES_NOT_FOUND", "Intel Matrix Storage capabilities not found"},
    {"DRIVER_VERSION", "Driver version"},
    {"BIOS_VERSION", "BIOS version"},
    {"NUM_LOGICAL_DEVICES", "Logical devices"},
    {"NUM_PHYSICAL_DEVICES", "Physical devices"},
    {"SUPPORTED_INTERFACES", "Supported interfaces"},
    {"SUPPORTED_RAID_LEVELS", "Supported RAID levels"},
    {"LOGICAL_DISK", "Logical disk"},
    {"PHYSICAL_DISK", "Physical disk"},
    {"RAID_LEVEL", "RAID level"},
    {"SINGLE_DRIVE_RAID_SET", "Single-drive RAID set"},

    // Attribute names of a description, as the module spells them.
    {"parent", "Group"},
    {"NonRotatingMedia", "Solid state"},
};

const std::map<std::string, const char*>& textMap() {
  static const std::map<std::string, const char*> map = [] {
    std::map<std::string, const char*> built;
    for (const TextRow& row : kTexts) built.emplace(row.key, row.text);
    return built;
  }();
  return map;
}

bool isKeyChar(char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'; }

// One piece of a message: a leading key, then data that stays as it is
// ("READING_SECTOR 1234", "TOO_MANY_BAD_SECTORS_FOUND: 10",
// "TEST_FINISHED_WITH_TIMEOUT: 120 s"). A leading bar belongs to some names
// ("|CHECK_FILESYSTEM_TOOL") and is a display mark, not text.
std::string describePiece(const std::string& piece) {
  size_t start = 0;
  while (start < piece.size() && piece[start] == '|') ++start;
  size_t end = start;
  while (end < piece.size() && isKeyChar(piece[end])) ++end;
  if (end == start) return piece;
  const std::string key = piece.substr(start, end - start);
  const char* text = findText(key);
  if (text == nullptr) return piece;
  return text + piece.substr(end);
}

}  // namespace

const char* findText(const std::string& key) {
  const auto& map = textMap();
  auto it = map.find(key);
  return it == map.end() ? nullptr : it->second;
}

std::string textOf(const std::string& key) {
  const char* text = findText(key);
  return text != nullptr ? std::string(text) : key;
}

std::string describeMessage(const std::string& message) {
  static const std::string kJoin = ". |";
  std::string out;
  size_t from = 0;
  while (true) {
    size_t at = message.find(kJoin, from);
    std::string piece = message.substr(from, at == std::string::npos ? std::string::npos : at - from);
    out += describePiece(piece);
    if (at == std::string::npos) break;
    out += ". ";
    from = at + kJoin.size();
  }
  return out;
}

std::string describeValue(const std::string& value) {
  if (value == "T") return "yes";
  if (value == "F") return "no";
  if (!value.empty() && value[0] == '_') {
    // A name with display marks: underscores stand for blanks, bars for nothing.
    std::string shown;
    for (char c : value) {
      if (c == '|') continue;
      shown += c == '_' ? ' ' : c;
    }
    size_t first = shown.find_first_not_of(' ');
    size_t last = shown.find_last_not_of(' ');
    return first == std::string::npos ? value : shown.substr(first, last - first + 1);
  }
  size_t slash = value.find('\\');
  if (slash != std::string::npos) {
    const char* text = findText(value.substr(0, slash));
    if (text != nullptr) return std::string(text) + " \\ " + value.substr(slash + 1);
    return value;
  }
  if (const char* text = findText(value)) return text;
  // "7200 RPM", "35 C": a number and a unit key.
  size_t blank = value.rfind(' ');
  if (blank != std::string::npos) {
    if (const char* unit = findText(value.substr(blank + 1))) return value.substr(0, blank + 1) + unit;
  }
  return value;
}

std::string resultKey(uint32_t code) {
  switch (code) {
    case SUCCESS:
    case FAILED:
    case NOT_APPLICABLE:
    case ABORTED:
    case WARNING:
    case INVALID: return resultName(code);
    default: return "UNKNOWN_RESULT";
  }
}

std::string resultText(uint32_t code) {
  const std::string key = resultKey(code);
  if (const char* text = findText(key)) return text;
  return "Unknown result " + std::to_string(code);
}

std::string levelText(uint32_t level) {
  switch (level) {
    case LevelInfo: return "info";
    case LevelWarning: return "warning";
    case LevelFailure: return "device fault";
    case LevelError: return "cannot test";
    default: return "level " + std::to_string(level);
  }
}

}  // namespace hwc

namespace hwc {

std::string toolStatusText(uint32_t status) {
  switch (status) {
    case kToolClean: return "Finished, nothing found";
    case kToolDeviceUnusable: return "The device could not be used";
    case kToolCheckScheduled: return "A check was scheduled for the next start";
    case kToolScheduleFailed: return "Scheduling the check failed";
    case kToolCannotStart: return "The operation could not start";
    case kToolAborted: return "Aborted, or not run at the user's answer";
    case kToolRepaired: return "Problems found and repaired";
    case kToolNotRepaired: return "A bad sector could not be repaired";
    case kToolBadSectorsFound: return "Bad sectors found, none repaired";
    case kToolSystemEvent: return "Stopped by a system event";
    default: return "Unknown tool status " + std::to_string(status);
  }
}

}  // namespace hwc
