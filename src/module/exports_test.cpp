// The built library's dynamic symbol table: exactly the three entry points,
// undecorated, and nothing else defined that a host could look up.
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
    const size_t blank = text.find(' ');
    std::string name = text.substr(0, blank);
    // A lower-case type is a local symbol: the linker may leave one in the
    // dynamic table (the shared-pointer type information of the standard
    // library does), but no host can look it up. 'u' is a unique global.
    const char type = blank + 1 < text.size() ? text[blank + 1] : ' ';
    const bool local = type >= 'a' && type <= 'z' && type != 'u';
    if (!name.empty() && !local) names.insert(name);
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
