// The committed white-box tables are exactly what tools/wbaes_gen produces
// with its committed seed: regenerating reproduces them byte for byte.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

const std::string kGenerator = std::string(OXCFG_BINARY_DIR) + "/tools/wbaes_gen";
const std::string kProductionFile = "wbaes_tables.cpp";
const std::string kTestFile = "wbaes_test_tables.cpp";

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs the generator with `args` (no shell); returns its exit status, or -1.
int RunGenerator(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  std::string prog = kGenerator;
  argv.push_back(&prog[0]);
  std::vector<std::string> copy = args;
  for (auto& a : copy) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, kGenerator.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return -1;
  int status = 0;
  if (waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

class TempDir {
 public:
  TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string tmpl =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/wbaes_gen.XXXXXX";
    if (mkdtemp(&tmpl[0]) != nullptr) path_ = tmpl;
  }
  ~TempDir() {
    if (path_.empty()) return;
    for (const std::string& f : {kProductionFile, kTestFile})
      std::remove((path_ + "/" + f).c_str());
    rmdir(path_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

TEST(WbAesGenerator, CommittedSeedReproducesTheCommittedTables) {
  ASSERT_EQ(0, access(kGenerator.c_str(), X_OK))
      << kGenerator << " is missing: build the wbaes_gen target before the tests";
  TempDir prod, test;
  ASSERT_FALSE(prod.path().empty());
  ASSERT_FALSE(test.path().empty());
  ASSERT_EQ(0, RunGenerator({prod.path(), test.path()}));

  const std::string src = OXCFG_SOURCE_DIR;
  const std::string committedProd = ReadAll(src + "/src/security/generated/" + kProductionFile);
  const std::string committedTest = ReadAll(src + "/tests/security/generated/" + kTestFile);
  ASSERT_FALSE(committedProd.empty());
  ASSERT_FALSE(committedTest.empty());
  // Compared whole, but reported briefly: these files are half a megabyte.
  EXPECT_TRUE(committedProd == ReadAll(prod.path() + "/" + kProductionFile))
      << "src/security/generated/" << kProductionFile << " differs from the generator's output";
  EXPECT_TRUE(committedTest == ReadAll(test.path() + "/" + kTestFile))
      << "tests/security/generated/" << kTestFile << " differs from the generator's output";
}

TEST(WbAesGenerator, AnotherSeedGivesOtherTablesAndBadArgumentsAreRefused) {
  ASSERT_EQ(0, access(kGenerator.c_str(), X_OK)) << kGenerator << " is missing";
  TempDir prod, test;
  ASSERT_EQ(0, RunGenerator({"--seed", "12345", prod.path(), test.path()}));
  const std::string src = OXCFG_SOURCE_DIR;
  EXPECT_FALSE(ReadAll(src + "/src/security/generated/" + kProductionFile) ==
               ReadAll(prod.path() + "/" + kProductionFile));
  EXPECT_EQ(2, RunGenerator({prod.path()}));
  EXPECT_EQ(2, RunGenerator({"--seed", "not-a-number", prod.path(), test.path()}));
  EXPECT_EQ(1, RunGenerator({prod.path() + "/missing/dir", test.path()}));
}

}  // namespace
