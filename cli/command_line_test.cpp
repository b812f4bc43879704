// Reading the command line: every form of the help screen, the front end's
// own options, and bad arguments named in the message.
#include "command_line.h"

#include <gtest/gtest.h>

namespace hwc {
namespace {

ParseResult parse(std::vector<std::string> args) { return parseCommandLine(args); }

TEST(CommandLine, ReadsAttachedAndSeparateModuleName) {
  ParseResult attached = parse({"-Mstorage"});
  ASSERT_TRUE(attached.ok) << attached.error;
  EXPECT_EQ(attached.line.moduleName, "storage");
  ParseResult separate = parse({"-M", "storage"});
  ASSERT_TRUE(separate.ok) << separate.error;
  EXPECT_EQ(separate.line.moduleName, "storage");
}

TEST(CommandLine, ReadsJsonLinesAndRefusesItBesideJson) {
  ParseResult lines = parse({"-Mstorage", "-Q", "--json-lines"});
  ASSERT_TRUE(lines.ok) << lines.error;
  EXPECT_TRUE(lines.line.jsonLines);
  EXPECT_FALSE(lines.line.json);
  for (const auto& both : {std::vector<std::string>{"--json", "--json-lines"}, {"--json-lines", "--json"}}) {
    ParseResult refused = parse(both);
    EXPECT_FALSE(refused.ok);
    EXPECT_NE(refused.error.find("exclude each other"), std::string::npos) << refused.error;
  }
  ParseResult valued = parse({"--json-lines=yes"});
  EXPECT_FALSE(valued.ok);
  EXPECT_NE(valued.error.find("takes no value"), std::string::npos) << valued.error;
}

TEST(CommandLine, ReadsQuickWithoutListAsAllTests) {
  for (const char* form : {"-Q", "--quick"}) {
    ParseResult result = parse({"-Mstorage", form});
    ASSERT_TRUE(result.ok) << result.error;
    ASSERT_EQ(result.line.diagnostics.size(), 1u);
    EXPECT_TRUE(result.line.diagnostics[0].allTests) << form;
    EXPECT_EQ(result.line.diagnostics[0].longForm, std::string(form) == "--quick");
  }
}

TEST(CommandLine, ReadsTestListsInEveryForm) {
  // What the shell hands over for -Q"f,r", and the same with quotes kept.
  for (const char* form : {"-Qf,r", "-Q\"f,r\"", "--quick=f,r", "--quick=\"f,r\"", "-Qf, r"}) {
    ParseResult result = parse({form});
    ASSERT_TRUE(result.ok) << form << ": " << result.error;
    ASSERT_EQ(result.line.diagnostics.size(), 1u);
    const DiagnosticChoice& choice = result.line.diagnostics[0];
    EXPECT_FALSE(choice.allTests);
    EXPECT_EQ(choice.tests, (std::vector<std::string>{"f", "r"})) << form;
    EXPECT_EQ(choice.name, choice.longForm ? "quick" : "Q");
  }
}

TEST(CommandLine, ReadsLongTestNamesAndTwoDiagnosticsWithDevices) {
  ParseResult result = parse({"-Mstorage", "-Q", "--extended=extended-self-test,w", "0", "1"});
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.line.diagnostics.size(), 2u);
  EXPECT_EQ(result.line.diagnostics[1].name, "extended");
  EXPECT_EQ(result.line.diagnostics[1].tests, (std::vector<std::string>{"extended-self-test", "w"}));
  ASSERT_EQ(result.line.devices.size(), 2u);
  EXPECT_EQ(result.line.devices[0].index, 0u);
  EXPECT_EQ(result.line.devices[1].index, 1u);
}

TEST(CommandLine, ReadsOwnOptionsWithSeparateAndAttachedValues) {
  ParseResult result = parse({"--list", "--json", "--machine", "default", "--module=/x/lib.so", "--param",
                              "STORAGE.SEC_NUM=1", "--param=STORAGE.WHOLE_DISK_READ=0", "--answer", "2",
                              "--answer=1", "--recover", "scan", "--help"});
  ASSERT_TRUE(result.ok) << result.error;
  const CommandLine& line = result.line;
  EXPECT_TRUE(line.list);
  EXPECT_TRUE(line.json);
  EXPECT_TRUE(line.help);
  EXPECT_EQ(line.machine, "default");
  EXPECT_EQ(line.libraryPath, "/x/lib.so");
  ASSERT_EQ(line.parameters.size(), 2u);
  EXPECT_EQ(line.parameters[0].section, "STORAGE");
  EXPECT_EQ(line.parameters[0].key, "SEC_NUM");
  EXPECT_EQ(line.parameters[0].value, "1");
  EXPECT_EQ(line.parameters[1].key, "WHOLE_DISK_READ");
  EXPECT_EQ(line.answers, (std::vector<uint32_t>{2, 1}));
  EXPECT_EQ(line.recoverOperation, "scan");
}

TEST(CommandLine, ParameterValueMayHoldAnEqualsSign) {
  ParseResult result = parse({"--param", "STORAGE.KEY=a=b"});
  ASSERT_TRUE(result.ok) << result.error;
  EXPECT_EQ(result.line.parameters[0].value, "a=b");
}

TEST(CommandLine, DoubleDashMakesTheRestDeviceIds) {
  ParseResult result = parse({"-Q", "--", "3"});
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.line.devices.size(), 1u);
  EXPECT_EQ(result.line.devices[0].index, 3u);
}

struct BadCase {
  std::vector<std::string> args;
  std::string named;  // what the message must name
};

TEST(CommandLine, RejectsBadArgumentsNamingThem) {
  const BadCase cases[] = {
      {{"-Q", "x1"}, "'x1'"},
      {{"-Q", "f,r"}, "-Q\"f,r\""},
      {{"-Q", "-1"}, "'-1'"},
      {{"-Q", "99999999999"}, "'99999999999'"},
      {{"-Q,"}, "'-Q,'"},
      {{"-Q\"\""}, "'-Q\"\"'"},
      {{"--quick="}, "'--quick='"},
      {{"-Qf,,r"}, "'-Qf,,r'"},
      {{"--param", "SEC_NUM=1"}, "SEC_NUM=1"},
      {{"--param", "STORAGE.SEC_NUM"}, "STORAGE.SEC_NUM"},
      {{"--param=.K=1"}, ".K=1"},
      {{"--answer", "yes"}, "'yes'"},
      {{"--answer=-1"}, "'-1'"},
      {{"--machine"}, "'--machine'"},
      {{"--recover", "wipe"}, "'wipe'"},
      {{"-M"}, "'-M'"},
      {{"-Mstorage", "-Mother"}, "'other'"},
      {{"-"}, "'-'"},
      {{"-7"}, "'-7'"},
      {{"--list=yes"}, "'--list=yes'"},
      {{"--machine="}, "'--machine='"},
  };
  for (const BadCase& bad : cases) {
    ParseResult result = parse(bad.args);
    EXPECT_FALSE(result.ok) << bad.args[0];
    EXPECT_NE(result.error.find(bad.named), std::string::npos) << "message '" << result.error << "' lacks " << bad.named;
  }
}

TEST(CommandLine, UnknownLongOptionIsKeptAsADiagnosticWordForTheModuleToJudge) {
  ParseResult result = parse({"--bogus"});
  ASSERT_TRUE(result.ok) << result.error;
  ASSERT_EQ(result.line.diagnostics.size(), 1u);
  EXPECT_EQ(result.line.diagnostics[0].name, "bogus");
  EXPECT_TRUE(result.line.diagnostics[0].longForm);
}

TEST(CommandLine, DecimalParserTakesOnly32BitDigits) {
  uint32_t value = 0;
  EXPECT_TRUE(parseDecimal("4294967295", value));
  EXPECT_EQ(value, 4294967295u);
  EXPECT_FALSE(parseDecimal("4294967296", value));
  EXPECT_FALSE(parseDecimal("", value));
  EXPECT_FALSE(parseDecimal(" 1", value));
  EXPECT_FALSE(parseDecimal("+1", value));
  EXPECT_FALSE(parseDecimal("0x10", value));
}

TEST(CommandLine, UsageNamesEveryOwnOptionAndTheExitStatuses) {
  const std::string usage = usageText();
  for (const char* word : {"-M", "--help", "--list", "--machine", "--module", "--param", "--answer", "--recover",
                           "--json", "Ctrl-C", "Exit status"}) {
    EXPECT_NE(usage.find(word), std::string::npos) << word;
  }
}

}  // namespace
}  // namespace hwc
