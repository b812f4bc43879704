// The WQL of the simulated WMI service: what parses, what is refused, and how
// a WHERE picks instances.
#include "sim/windows/wql.h"

#include <gtest/gtest.h>

namespace sim {
namespace windows {
namespace {

WmiObject disk(const std::string& id, int64_t type, const std::string& size) {
  WmiObject object;
  object.className = "Win32_LogicalDisk";
  object.properties.push_back({"DeviceID", WmiValue::bstr(id), WmiValue::Kind::Null});
  object.properties.push_back({"DriveType", WmiValue::i4(type), WmiValue::Kind::Null});
  object.properties.push_back({"Size", WmiValue::bstr(size), WmiValue::Kind::Null});
  object.properties.push_back({"VolumeName", WmiValue(), WmiValue::Kind::Null});
  return object;
}

bool matches(const std::string& text, const WmiObject& object) {
  WqlQuery query;
  std::string error;
  EXPECT_TRUE(parseWql(text, &query, &error)) << text << ": " << error;
  return wqlMatches(query, object);
}

TEST(WqlTest, ParsesTheFieldsAndTheClassOfASelect) {
  WqlQuery query;
  ASSERT_TRUE(parseWql("SELECT DeviceID, Size FROM Win32_LogicalDisk", &query, nullptr));
  EXPECT_EQ(query.fields, (std::vector<std::string>{"DeviceID", "Size"}));
  EXPECT_EQ(query.className, "Win32_LogicalDisk");
  EXPECT_EQ(query.where, nullptr);
}

TEST(WqlTest, AStarSelectsEveryFieldAndKeywordsIgnoreCase) {
  WqlQuery query;
  ASSERT_TRUE(parseWql("select * from win32_diskdrive", &query, nullptr));
  EXPECT_TRUE(query.fields.empty());
  EXPECT_EQ(query.className, "win32_diskdrive");
}

TEST(WqlTest, RefusesWhatIsNotASimpleDataQuery) {
  const char* const bad[] = {"",
                             "SELECT FROM Win32_LogicalDisk",
                             "SELECT DeviceID Win32_LogicalDisk",
                             "SELECT DeviceID FROM",
                             "SELECT DeviceID FROM Win32_LogicalDisk WHERE",
                             "SELECT DeviceID FROM Win32_LogicalDisk WHERE DeviceID = 'C:",
                             "SELECT DeviceID FROM Win32_LogicalDisk WHERE DeviceID =",
                             "SELECT DeviceID FROM Win32_LogicalDisk extra",
                             "SELECT DeviceID FROM Win32_LogicalDisk WHERE (DriveType = 3",
                             "SELECT DeviceID FROM Win32_LogicalDisk WHERE DriveType IS 3",
                             "ASSOCIATORS OF {Win32_LogicalDisk.DeviceID='C:'}",
                             "SELECT DeviceID; FROM Win32_LogicalDisk"};
  for (const char* text : bad) {
    WqlQuery query;
    std::string error;
    EXPECT_FALSE(parseWql(text, &query, &error)) << text;
    EXPECT_FALSE(error.empty()) << text;
  }
}

TEST(WqlTest, DeeplyNestedConditionsAreRefusedNotFollowed) {
  std::string text = "SELECT A FROM B WHERE ";
  for (int i = 0; i < 10000; ++i) text += "(";
  WqlQuery query;
  EXPECT_FALSE(parseWql(text, &query, nullptr));
}

TEST(WqlTest, StringComparisonsIgnoreCase) {
  EXPECT_TRUE(matches("SELECT DeviceID FROM X WHERE DeviceID = 'c:'", disk("C:", 3, "100")));
  EXPECT_TRUE(matches("SELECT DeviceID FROM X WHERE DeviceID = \"C:\"", disk("C:", 3, "100")));
  EXPECT_FALSE(matches("SELECT DeviceID FROM X WHERE DeviceID <> 'C:'", disk("C:", 3, "100")));
  EXPECT_TRUE(matches("SELECT DeviceID FROM X WHERE DeviceID != 'D:'", disk("C:", 3, "100")));
}

TEST(WqlTest, NumbersCompareAsNumbersAlsoWhenTheyTravelAsText) {
  EXPECT_TRUE(matches("SELECT A FROM X WHERE DriveType = 3", disk("C:", 3, "100")));
  EXPECT_TRUE(matches("SELECT A FROM X WHERE DriveType >= 2 AND DriveType < 4", disk("C:", 3, "100")));
  EXPECT_TRUE(matches("SELECT A FROM X WHERE Size > 99", disk("C:", 3, "100")));
  EXPECT_FALSE(matches("SELECT A FROM X WHERE Size > 100", disk("C:", 3, "100")));
  EXPECT_TRUE(matches("SELECT A FROM X WHERE DriveType = '3'", disk("C:", 3, "100")));
}

TEST(WqlTest, AndOrNotAndParenthesesCombine) {
  const WmiObject c = disk("C:", 3, "100");
  EXPECT_TRUE(matches("SELECT A FROM X WHERE DeviceID = 'D:' OR DriveType = 3", c));
  EXPECT_FALSE(matches("SELECT A FROM X WHERE DeviceID = 'D:' AND DriveType = 3", c));
  EXPECT_TRUE(matches("SELECT A FROM X WHERE NOT (DeviceID = 'D:' AND DriveType = 3)", c));
  EXPECT_TRUE(matches("SELECT A FROM X WHERE DriveType = 2 OR DriveType = 4 OR DeviceID = 'C:'", c));
}

TEST(WqlTest, NullValuesMatchOnlyIsNull) {
  const WmiObject c = disk("C:", 3, "100");
  EXPECT_TRUE(matches("SELECT A FROM X WHERE VolumeName IS NULL", c));
  EXPECT_FALSE(matches("SELECT A FROM X WHERE VolumeName IS NOT NULL", c));
  EXPECT_FALSE(matches("SELECT A FROM X WHERE VolumeName = ''", c));
  EXPECT_FALSE(matches("SELECT A FROM X WHERE VolumeName <> ''", c));
}

TEST(WqlTest, NamesUsedListTheFieldsAndTheConditionsProperties) {
  WqlQuery query;
  ASSERT_TRUE(parseWql("SELECT A, B FROM X WHERE C = 1 AND (D IS NULL OR A = 'x')", &query, nullptr));
  EXPECT_EQ(wqlNamesUsed(query), (std::vector<std::string>{"A", "B", "C", "D", "A"}));
}

}  // namespace
}  // namespace windows
}  // namespace sim
