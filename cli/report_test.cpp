// The summary's arithmetic: exit statuses by their order, a lost device told
// from a stop, lists shown with each entry once, numbers found in text.
#include "report.h"

#include <gtest/gtest.h>

#include "exit_status.h"

namespace hwc {
namespace {

TestRecord ran(uint32_t result, const std::string& key = "") {
  TestRecord record;
  record.outcome = RunOutcome::Ran;
  record.result = result;
  if (!key.empty()) record.events.push_back({100, key});
  return record;
}

TEST(Report, ALostDeviceIsAnAbortThatSaysTheDeviceStoppedAnswering) {
  EXPECT_TRUE(ran(ABORTED, "DEVICE_COMMUNICATION_FAILURE").deviceLost());
  EXPECT_FALSE(ran(ABORTED, "SELF_TEST_ABORTED_BY_EXTERNAL_FACTOR").deviceLost());
  EXPECT_FALSE(ran(FAILED, "DEVICE_COMMUNICATION_FAILURE").deviceLost()) << "only an ABORTED run";
  TestRecord logged = ran(ABORTED);
  logged.log.push_back({"DEVICE_COMMUNICATION_FAILURE", 3});
  EXPECT_TRUE(logged.deviceLost()) << "the log line counts as well";
  EXPECT_EQ(verdictText(ran(ABORTED, "DEVICE_COMMUNICATION_FAILURE")), "Aborted: the device stopped answering");
}

TEST(Report, ExitStatusOrdersFailedLostStoppedPassedNothing) {
  const TestRecord lost = ran(ABORTED, "DEVICE_COMMUNICATION_FAILURE");
  EXPECT_EQ(exitStatusOf({ran(SUCCESS), lost}, false), kExitDeviceLost);
  EXPECT_EQ(exitStatusOf({ran(FAILED), lost}, false), kExitFailed);
  EXPECT_EQ(exitStatusOf({lost}, true), kExitDeviceLost) << "a lost device outranks the user's stop";
  EXPECT_EQ(exitStatusOf({ran(ABORTED)}, false), kExitAborted);
  EXPECT_EQ(exitStatusOf({ran(SUCCESS)}, true), kExitAborted);
  EXPECT_EQ(exitStatusOf({ran(NOT_APPLICABLE)}, false), kExitNothingRan);
  EXPECT_EQ(worseExit(kExitAborted, kExitDeviceLost), kExitDeviceLost);
  EXPECT_EQ(worseExit(kExitNothingRan, kExitPassed), kExitPassed);
  EXPECT_EQ(worseExit(kExitNothingRan, kExitNothingRan), kExitNothingRan);
}

TEST(Report, AListShowsEachEntryOnceInTheOrderOfFirstSight) {
  EXPECT_EQ(withoutRepeats("ATA8-ACS, ATA7-ATAPI, ATA8-ACS, ATA7-ATAPI"), "ATA8-ACS, ATA7-ATAPI");
  EXPECT_EQ(withoutRepeats("SPC-4, SBC-3"), "SPC-4, SBC-3");
  EXPECT_EQ(withoutRepeats("one value"), "one value");
  EXPECT_EQ(withoutRepeats(""), "");
}

TEST(Report, APlainDecimalIsANumberAndAnythingElseStaysText) {
  EXPECT_EQ(numberOrText("976773168"), nlohmann::json(976773168u));
  EXPECT_EQ(numberOrText("0"), nlohmann::json(0u));
  EXPECT_EQ(numberOrText("7200 RPM"), nlohmann::json("7200 RPM"));
  EXPECT_EQ(numberOrText("007"), nlohmann::json("007")) << "a leading zero makes a name";
  EXPECT_EQ(numberOrText("-1"), nlohmann::json("-1"));
  EXPECT_EQ(numberOrText("99999999999999999999"), nlohmann::json("99999999999999999999")) << "beyond 64 bits";
  EXPECT_EQ(numberOrText(""), nlohmann::json(""));
}

}  // namespace
}  // namespace hwc
