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

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs the generator with `args` (no shell); returns its exit status, or -1.
int RunGenerator(std::vector<std::string> args) {
  args.insert(args.begin(), kGenerator);
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  pid_t pid = 0;
  int status = 0;
  if (posix_spawn(&pid, kGenerator.c_str(), nullptr, nullptr, argv.data(), environ) != 0 ||
      waitpid(pid, &status, 0) != pid || !WIFEXITED(status)) {
    return -1;
  }
  return WEXITSTATUS(status);
}

TEST(WbAesGenerator, CommittedSeedReproducesTheCommittedTables) {
  ASSERT_EQ(0, access(kGenerator.c_str(), X_OK))
      << kGenerator << " is missing: build the wbaes_gen target before the tests";
  const char* base = std::getenv("TMPDIR");
  std::string dir =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/wbaes_gen.XXXXXX";
  ASSERT_NE(nullptr, mkdtemp(&dir[0]));
  // Both outputs into one directory: the two file names differ.
  const int rc = RunGenerator({dir, dir});
  const std::string src = OXCFG_SOURCE_DIR;
  for (const std::string f : {"src/security/generated/wbaes_tables.cpp",
                               "tests/security/generated/wbaes_test_tables.cpp"}) {
    const std::string generated = dir + f.substr(f.rfind('/'));
    const std::string committed = ReadAll(src + "/" + f);
    EXPECT_FALSE(committed.empty()) << f;
    // Compared whole, but reported briefly: these files are half a megabyte.
    EXPECT_TRUE(rc == 0 && committed == ReadAll(generated))
        << f << " differs from the generator's output";
    std::remove(generated.c_str());
  }
  rmdir(dir.c_str());
  EXPECT_EQ(0, rc);
}

}  // namespace
