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
    const size_t blank = text.find(' ');
    std::string name = text.substr(0, blank);
    // A lower-case type is a local entry: the linker leaves one in the
    // dynamic table for a weak template object that a linked library (Qt)
    // also exports, but binds it inside the module; it is not an export.
    const char type = blank + 1 < text.size() ? text[blank + 1] : 'T';
    if (type >= 'a' && type <= 'z') continue;
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
