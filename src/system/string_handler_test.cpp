// The shared operation of every string service, and the process-wide object.
#include "system/string_handler.h"

#include <gtest/gtest.h>

#include "system/win_string_handler_imp.h"

namespace {

TEST(StringHandler, CopyToNulWithInnerNulGivesThePartBeforeIt) {
  WinStringHandlerImp handler;
  EXPECT_EQ(handler.copyToNul(std::string("abc\0def", 7)), "abc");
  EXPECT_EQ(handler.copyToNul(std::string("\0x", 2)), "");
  EXPECT_EQ(handler.copyToNul("plain"), "plain");
}

TEST(StringHandler, AccessorHandsOutOneObjectForTheProcess) {
  StringHandler& first = getStringHandler();
  StringHandler& second = getStringHandler();
  EXPECT_EQ(&first, &second);
  EXPECT_NE(dynamic_cast<WinStringHandlerImp*>(&first), nullptr);
}

}  // namespace
