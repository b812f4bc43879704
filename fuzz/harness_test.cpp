// Every input kept under fuzz/regressions/<target>/ once made its target
// crash, hang or read out of bounds; each is replayed through the target's
// body and must now simply end. The seed corpora are replayed too, so a body
// that breaks on real-shaped answers is seen here before anyone fuzzes.
#include "fuzz/harness.h"

#include <gtest/gtest.h>

#include <dirent.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<std::string> filesIn(const std::string& folder) {
  std::vector<std::string> files;
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return files;
  while (dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || name == ".gitkeep") continue;
    files.push_back(folder + "/" + name);
  }
  closedir(dir);
  return files;
}

std::vector<uint8_t> contentsOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class FuzzInputs : public ::testing::TestWithParam<size_t> {};

TEST_P(FuzzInputs, EveryKeptRegressionInputAndSeedEndsWithoutAFault) {
  const fuzzing::Target& target = fuzzing::targets().at(GetParam());
  const std::string base = FUZZ_SOURCE_DIR;
  size_t replayed = 0;
  for (const char* kind : {"/regressions/", "/corpus/"}) {
    for (const std::string& path : filesIn(base + kind + target.name)) {
      SCOPED_TRACE(path);
      const std::vector<uint8_t> input = contentsOf(path);
      target.run(input.data(), input.size());
      ++replayed;
    }
  }
  // Every target has a seed corpus in the repository.
  EXPECT_GT(replayed, 0u) << "no seeds under fuzz/corpus/" << target.name;
}

std::string targetName(const ::testing::TestParamInfo<size_t>& info) {
  return fuzzing::targets().at(info.param).name;
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzInputs, ::testing::Range<size_t>(0, fuzzing::targets().size()), targetName);

}  // namespace
