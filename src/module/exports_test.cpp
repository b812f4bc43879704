// The built library's dynamic symbol table: exactly the three entry points,
// undecorated, and nothing else defined.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>

namespace {

std::set<std::string> definedDynamicSymbols(const std::string& library) {
  std::set<std::string> names;
  std::string command = "nm -D --defined-only --format=posix '" + library + "' 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return names;
  char line[4096];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    std::string text(line);
    std::string name = text.substr(0, text.find(' '));
    if (!name.empty()) names.insert(name);
  }
  pclose(pipe);
  return names;
}

TEST(Exports, LibraryDefinesExactlyTheThreeEntryPoints) {
  std::set<std::string> names = definedDynamicSymbols(MODULE_STORAGE_LIBRARY_PATH);
  EXPECT_EQ(names, (std::set<std::string>{"GetModuleInterfaceInstance", "GetProductVersion",
                                          "ReleaseModuleInterfaceInstance"}));
}

}  // namespace
