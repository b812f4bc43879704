// The tables of the storage resource. The keys are the host's text-table
// keys; the help screen is plain English and is shown as it stands.
#include "resource/storage_resource.h"

namespace {

constexpr uint16_t kModule = 1;
constexpr uint32_t kQuick = 1;
constexpr uint32_t kExtended = 2;

struct DiagnosticRow {
  uint32_t diagnosticId;
  const char* name;
  const char* tooltip;
  const char* shortName;
  const char* longName;
};

struct TestRow {
  uint32_t diagnosticId;
  uint32_t testId;
  const char* name;
  const char* tooltip;
  const char* shortName;
  const char* longName;
};

const DiagnosticRow kDiagnostics[] = {
    {kQuick, "QUICK_TESTS", "QUICK_TESTS_TOOLTIP", "Q", "quick"},
    {kExtended, "EXTENDED_TESTS", "EXTENDED_TESTS_TOOLTIP", "E", "extended"},
};

// Letters are unique inside a diagnostic only: a selection is read together
// with its diagnostic. The irregular long names ("extended-random_seek-test")
// and the "EXTENDED_" tooltip key of the write test are what hosts and their
// scripts match against, and stay as they are.
const TestRow kTests[] = {
    {kQuick, 1, "SMART_STATUS_TEST", "SMART_STATUS_TEST_TOOLTIP", "m", "smart-status"},
    {kQuick, 2, "TARGETED_READ_TEST", "TARGETED_READ_TEST_TOOLTIP", "t", "targeted-read"},
    {kQuick, 3, "RANDOM_SEEK_TEST", "RANDOM_SEEK_TEST_TOOLTIP", "r", "random-seek"},
    {kQuick, 4, "FUNNEL_SEEK_TEST", "FUNNEL_SEEK_TEST_TOOLTIP", "f", "funnel-seek"},
    {kQuick, 5, "SHORT_SELF_TEST", "SHORT_SELF_TEST_TOOLTIP", "s", "short-self-test"},
    {kQuick, 6, "DRIVE_SELF_TEST", "DRIVE_SELF_TEST_TOOLTIP", "d", "drive-self-test"},
    {kQuick, 7, "DEFAULT_SELF_TEST", "DEFAULT_SELF_TEST_TOOLTIP", "u", "default-self-test"},
    {kQuick, 11, "DEVICE_READ_TEST", "DEVICE_READ_TEST_TOOLTIP", "e", "device-read-test"},
    {kExtended, 8, "EXTENDED_RANDOM_SEEK_TEST", "EXTENDED_RANDOM_SEEK_TEST_TOOLTIP", "r",
     "extended-random_seek-test"},
    {kExtended, 9, "EXTENDED_FUNNEL_SEEK_TEST", "EXTENDED_FUNNEL_SEEK_TEST_TOOLTIP", "f",
     "extended-funnel-seek-test"},
    {kExtended, 10, "EXTENDED_SELF_TEST", "EXTENDED_SELF_TEST_TOOLTIP", "s", "extended-self-test"},
    {kExtended, 12, "DEVICE_WRITE_TEST", "EXTENDED_DEVICE_WRITE_TEST_TOOLTIP", "w", "device-write-test"},
};

std::string lookUp(const std::map<ItemId, std::string>& table, const ItemId& item) {
  auto it = table.find(item);
  return it == table.end() ? std::string() : it->second;
}

// The help screen. The front end's name and the device numbers of the
// examples are joined in from single strings.
std::string buildHelpText() {
  const std::string cli = "hwc_cli";
  const std::string zero = "0";
  const std::string one = "1";
  std::string text;
  text += "Storage Module help:\n";
  text += "  Usage: " + cli + " -Mstorage [diagnostic]\"[test(s)]\" [device id(s)]\n";
  text += "  Diagnostics:\n";
  text += "\t-Q, --quick\tRuns all test(s) of Quick Storage diagnostic\n";
  text += "\t-Q\"[test(s)]\", --quick=\"[test(s)]\"\tRuns chosen test(s) of Quick Storage diagnostic\n\n";
  text += "\t-E, --extended\tRuns all test(s) of Extended Server Storage diagnostic\n";
  text += "\t-E\"[test(s)]\", --extended=\"[test(s)]\"\tRuns chosen test(s) of Extended Server Storage diagnostic\n\n";
  text += "  Quick Tests:\n";
  text += "\tm, smart-status           SMART Status Test\n";
  text += "\tt, targeted-read          Targeted Read Test\n";
  text += "\tr, random-seek            Random Seek Test\n";
  text += "\tf, funnel-seek            Funnel Seek Test\n";
  text += "\ts, short-self-test        SMART Short Self-Test\n";
  text += "\td, drive-self-test        SMART Drive Self-Test\n";
  text += "\tu, default-self-test      Default-self-test\n";
  text += "\te, device-read-test       Device Read Test (available for eMMC and NVMe devices only)\n\n";
  text += "  Extended Tests:\n";
  text += "\tr, random-seek            Random Seek Test\n";
  text += "\tf, funnel-seek            Funnel Seek Test\n";
  text += "\ts, extended-self-test     Extended Self-Test\n";
  text += "\tw, device-write-test      Device Write Test (available for eMMC and NVMe devices only)\n\n";
  text += " Examples:\n";
  text += "  => Performs tests funnel and extended self-test of diagnostic Extended on devices " + zero + " and " +
          one + " of the storage module\n";
  text += "           " + cli + " -Mstorage -E\"f,s\" " + zero + " " + one + "\n\n";
  text += "  => Performs tests funnel and random of diagnostic Quick on devices " + zero + " and " + one +
          " of the storage module\n";
  text += "           " + cli + " -Mstorage -Q\"f,r\" " + zero + " " + one + "\n\n";
  text += "  => Performs all tests of diagnostic Quick and diagnostic Extended on devices " + zero + " and " + one +
          " of the storage module\n";
  text += "           " + cli + " -Mstorage -Q -E " + zero + " " + one;  // no line end after the last line
  return text;
}

}  // namespace

StorageResource::StorageResource(const ItemId& itemId) : Resource(itemId) {
  moduleName = "STORAGE";
  moduleShortName = "HD";
  helpText = buildHelpText();
  for (const DiagnosticRow& row : kDiagnostics) {
    const ItemId item(kModule, row.diagnosticId, 0);
    diagnosticNames[item] = row.name;
    diagnosticTooltips[item] = row.tooltip;
    diagnosticOptions[item] = CliOption{row.shortName, row.longName, kCliDiagnostic};
  }
  for (const TestRow& row : kTests) {
    const ItemId item(kModule, row.diagnosticId, row.testId);
    testNames[item] = row.name;
    testTooltips[item] = row.tooltip;
    testOptions[item] = CliOption{row.shortName, row.longName, kCliTest};
  }
}

StorageResource::~StorageResource() = default;

std::string StorageResource::getDiagnosticName(const ItemId& item) const { return lookUp(diagnosticNames, item); }

std::string StorageResource::getTestName(const ItemId& item) const { return lookUp(testNames, item); }

std::string StorageResource::getDiagnosticTooltip(const ItemId& item) const {
  return lookUp(diagnosticTooltips, item);
}

std::string StorageResource::getTestTooltip(const ItemId& item) const { return lookUp(testTooltips, item); }
