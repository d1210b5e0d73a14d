#include <sys/stat.h>
#include <unistd.h>

#include <openssl/evp.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "platform/check_port.h"
#include "platform/hex.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/unique_fd.h"
#include "support/test_support.h"

namespace {

class PlatformTest : public oxtest::WorkDirTest {};

TEST_F(PlatformTest, CurrentDirectoryEndsWithSeparator) {
  char cwd[4096];
  ASSERT_NE(::getcwd(cwd, sizeof cwd), nullptr);
  EXPECT_EQ(OX_BASE_GetCurDir(), std::string(cwd) + "/");
}

TEST_F(PlatformTest, NumbersAndBoundedCopies) {
  EXPECT_EQ(OSL_Atoi32("  42abc"), 42);
  EXPECT_EQ(OSL_Atoi32("-7"), -7);
  EXPECT_EQ(OSL_Atoi32("abc"), 0);
  EXPECT_EQ(OSL_Atoi32(nullptr), 0);
  EXPECT_EQ(OSL_Atoi32("70000") & 0xFFFF, 4464);
  char buf[34];
  EXPECT_STREQ(OSL_Itoa(-120, buf, 10), "-120");
  EXPECT_STREQ(OSL_Itoa(255, buf, 16), "ff");

  char field[5];
  std::memset(field, 'x', sizeof field);
  OSL_Strncpy(field, "abcdefgh", sizeof field);
  EXPECT_STREQ(field, "abcd");
  OSL_Strncpy(field, nullptr, sizeof field);
  EXPECT_STREQ(field, "");
}

TEST_F(PlatformTest, HexadecimalAndMd5) {
  const unsigned char bytes[] = {0x00, 0xAB, 0x7F, 0xFF};
  char text[9];
  EXPECT_EQ(convertByteArrayToCharArray(bytes, 4, text, 9), 8);
  EXPECT_STREQ(text, "00ab7fff");
  char narrow[5] = "zzzz";
  EXPECT_EQ(convertByteArrayToCharArray(bytes, 4, narrow, 4), 4);  // 2 bytes fit, no room for NUL
  EXPECT_EQ(std::string(narrow, 4), "00ab");
  unsigned char back[4] = {0};
  EXPECT_EQ(convertCharArrayToByteArray("00AB7fFF", 8, back, 4), 4);
  EXPECT_EQ(std::memcmp(back, bytes, 4), 0);
  EXPECT_EQ(convertCharArrayToByteArray("zz1", 3, back, 4), 1);  // garbage reads as 0
  EXPECT_EQ(back[0], 0);
  EXPECT_EQ(Vlue2HexString(bytes, 4), "00ab7fff");
  char md5[33];
  ASSERT_EQ(mprGetMD5Hash(reinterpret_cast<const unsigned char*>("abc"), 3, md5), 0);
  EXPECT_STREQ(md5, "900150983cd24fb0d6963f7d28e17f72");
}

TEST_F(PlatformTest, UuidsAndRandomNumbersAreFresh) {
  OSL_UUID a, b;
  ASSERT_EQ(OSL_GetUUID(&a), 0);
  ASSERT_EQ(OSL_GetUUID(&b), 0);
  EXPECT_NE(std::memcmp(a.data, b.data, 16), 0);
  char text[37];
  ASSERT_EQ(OSL_StringFromUUID(&a, text, sizeof text), 36);
  EXPECT_EQ(text[8], '-');
  EXPECT_EQ(text[14], '4');  // version 4
  std::atomic<int64_t> counter{0};
  EXPECT_EQ(OSL_AtomicInc(&counter), 1);
  EXPECT_EQ(OSL_AtomicInc(&counter), 2);
}

TEST_F(PlatformTest, IPv4Parsing) {
  unsigned int addr = 0;
  EXPECT_EQ(OX_BASE_ParseIp4("192.168.1.10", &addr), 0);
  EXPECT_EQ(addr, 0xC0A8010Au);
  for (const char* bad : {"", "1.2.3", "1.2.3.4.5", "256.1.1.1", "1.2.3.4 ", "a.b.c.d", "1..2.3"}) {
    EXPECT_EQ(OX_BASE_ParseIp4(bad, &addr), -1) << bad;
  }
}

TEST_F(PlatformTest, CommandsRunWithoutAShell) {
  std::string out;
  // Quotes, $() and ; are plain bytes of the argument, never interpreted.
  const std::string tricky = "a'b\"c; $(touch pwned) `id`";
  EXPECT_EQ(OX_BASE_System({"printf", "%s", tricky}, &out), 0);
  EXPECT_EQ(out, tricky);
  EXPECT_FALSE(oxtest::fileExists(path("pwned")));
  // Standard input reaches the program and the working directory applies.
  EXPECT_EQ(OX_BASE_ProcessCmd({"sh", "-c", "cat > got.txt"}, "secret\n", dir()), 1);
  EXPECT_EQ(oxtest::readFile(path("got.txt")), "secret\n");
  EXPECT_EQ(OX_BASE_ProcessCmd({"false"}), 0);
  EXPECT_EQ(OX_BASE_System({"/no/such/program"}, &out), -1);
  // A large output does not dead-lock against a large input.
  std::string big(1 << 20, 'q');
  OxBase::CommandResult r = OxBase::Env::Current()->Run({"cat"}, big, "");
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.output.size(), big.size());
}

TEST_F(PlatformTest, CheckPortSeesARealListener) {
  EXPECT_EQ(CheckPort(0, 1), -1);
  EXPECT_EQ(CheckPort(65536, 1), -1);
  EXPECT_EQ(CheckPort(65535, 0), 65535);
  oxtest::LoopbackListener busy;
  ASSERT_GT(busy.port(), 0);
  EXPECT_EQ(CheckPort(busy.port(), 1), -1);
}

TEST_F(PlatformTest, DirectoriesFilesAndCopies) {
  ASSERT_EQ(OSL_MakeDir(path("stage").c_str()), 0);
  EXPECT_EQ(OSL_MakeDir(path("stage").c_str()), 0);  // an existing one is fine
  oxtest::writeFile(path("stage/a.xml"), "A");
  ASSERT_EQ(OSL_MakeDir(path("stage/sub").c_str()), 0);

  OSL_Dir* d = OSL_OpenDir(path("stage").c_str());
  ASSERT_NE(d, nullptr);
  std::vector<std::pair<std::string, bool>> seen;
  OSL_FileInfo info;
  while (OSL_FindFileInDir(d, &info) == 0) seen.emplace_back(info.name, info.isDir);
  EXPECT_EQ(OSL_CloseDir(d), 0);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, (std::vector<std::pair<std::string, bool>>{{"a.xml", false}, {"sub", true}}));
  EXPECT_EQ(OSL_OpenDir(path("nowhere").c_str()), nullptr);

  // A copy is whole and as private as its source.
  ::chmod(path("stage/a.xml").c_str(), 0600);
  ASSERT_EQ(OSL_CopyFile(path("stage/a.xml").c_str(), path("b.xml").c_str()), 0);
  EXPECT_EQ(oxtest::readFile(path("b.xml")), "A");
  EXPECT_EQ(oxtest::fileMode(path("b.xml")), 0600u);
  EXPECT_NE(OSL_CopyFile(path("none").c_str(), path("b.xml").c_str()), 0);
  EXPECT_EQ(oxtest::readFile(path("b.xml")), "A");

  EXPECT_NE(OSL_RemoveDir(path("stage").c_str()), 0);  // not empty
  ASSERT_EQ(OSL_RemoveDir(path("stage/sub").c_str()), 0);
  ASSERT_EQ(OSL_DeleteFile(path("stage/a.xml").c_str()), 0);
  ASSERT_EQ(OSL_RemoveDir(path("stage").c_str()), 0);
  EXPECT_FALSE(oxtest::fileExists(path("stage")));

  // Files are opened for reading only.
  EXPECT_EQ(OSL_OpenFile(path("b.xml").c_str(), 2, 0644), OSL_INVALID_FILE);
  EXPECT_EQ(OSL_GetSystemLastError(), EINVAL);
  OxBase::UniqueFd f(OSL_OpenFile(path("b.xml").c_str(), OSL_FILE_READ | OSL_FILE_BINARY, 0));
  ASSERT_TRUE(f.valid());
  char c = 0;
  EXPECT_EQ(OSL_ReadFile(f.get(), &c, 1), 1);
  EXPECT_EQ(c, 'A');
  EXPECT_EQ(OSL_ReadFile(f.get(), &c, 1), 0);
}

TEST_F(PlatformTest, BrokenDownTimesConvertBothWays) {
  // 2024-02-29 12:34:56.789 at UTC+8 is 04:34:56.789 UTC.
  OSL_ExpTime t{};
  t.tm_usec = 789000;
  t.tm_sec = 56;
  t.tm_min = 34;
  t.tm_hour = 12;
  t.tm_mday = 29;
  t.tm_mon = 1;
  t.tm_year = 124;
  t.tm_gmtoff = 8 * 3600;
  OSL_Time stamp = 0;
  ASSERT_EQ(OSL_TimeFromExpTimeGMT(&t, &stamp), 0);
  EXPECT_EQ(stamp, 1709181296789000LL);
  t.tm_mon = 12;
  EXPECT_NE(OSL_TimeFromExpTimeGMT(&t, &stamp), 0);

  // Local breakdown and back, in whatever zone this process runs.
  OSL_ExpTime local{};
  ASSERT_EQ(OSL_ExpTimeFromTimeLocal(1709181296789000LL, &local), 0);
  EXPECT_EQ(local.tm_usec, 789000);
  OSL_Time back = 0;
  ASSERT_EQ(OSL_TimeFromExpTimeGMT(&local, &back), 0);
  EXPECT_EQ(back, 1709181296789000LL);
}

TEST_F(PlatformTest, TheRealEnvironmentNamesTheMachinesZoneFiles) {
  OxBase::Env* env = OxBase::Env::Default();
  EXPECT_EQ(env->ZoneInfoRoot(), "/usr/share/zoneinfo/");
  EXPECT_EQ(env->LocalTimePath(), "/etc/localtime");
  EXPECT_EQ(env->OsReleasePath(), "/etc/os-release");
  unsigned char a[16], b[16];
  env->NewUuid(a);
  env->NewUuid(b);
  EXPECT_NE(std::memcmp(a, b, 16), 0);
  EXPECT_EQ(a[6] >> 4, 4);
}

}  // namespace
