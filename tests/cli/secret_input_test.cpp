// Secrets read by oxcfg from standard input: each command takes a line up to
// its own limit (archive passwords 4,096 bytes, account passwords 1,024) and
// refuses a longer one instead of cutting it.
#include <stdlib.h>

#include <string>
#include <vector>

#include "cli/cli_support.h"

namespace {

class SecretInputTest : public oxtest::WorkDirTest {
 protected:
  oxtest::CliRun cli(std::vector<std::string> args, const std::string& input = "") {
    args.insert(args.begin(), {"-C", gw()});
    return oxtest::runOxcfg(args, dir(), input);
  }
  std::string gw() const { return path("gw"); }
};

TEST_F(SecretInputTest, EachCommandTakesALineUpToItsLimitAndRefusesALongerOne) {
  ::setenv("ASAN_OPTIONS", "new_delete_type_mismatch=0", 0);
  ASSERT_EQ(oxtest::runOxcfg({"init", gw()}, dir()).status, 0);
  ASSERT_EQ(cli({"export", path("a.zip")}, "pw\r\n").status, 0);
  const struct {
    std::vector<std::string> args;
    std::string input;
    int status;
    const char* err;  // part of standard error
  } rows[] = {
      // Read whole and handed to the library, whose archiver refuses it.
      {{"export", path("b.zip")}, std::string(4096, 'p') + "\n", 1, "export: failed (result 9"},
      {{"export", path("b.zip")}, std::string(4097, 'p') + "\n", 2, "no password read"},
      {{"export", path("b.zip")}, "", 2, "no password read"},
      {{"import", path("a.zip")}, std::string(4097, 'p') + "\n", 2, "no password read"},
      {{"import", path("a.zip")}, "pw\r\n", 0, ""},
      {{"passwd"}, std::string(1024, 'a') + "\n", 0, ""},
      {{"passwd"}, std::string(1025, 'a') + "\n", 2, "longer than 1024 bytes"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args[0] + " of " + std::to_string(row.input.size()) + " bytes");
    const oxtest::CliRun r = cli(row.args, row.input);
    EXPECT_EQ(r.status, row.status) << r.err;
    EXPECT_NE(r.err.find(row.err), std::string::npos) << r.err;
  }
  EXPECT_FALSE(oxtest::fileExists(path("b.zip")));
}

}  // namespace
