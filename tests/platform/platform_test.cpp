#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/evp.h>

#include <cstring>
#include <string>

#include "platform/check_port.h"
#include "platform/hex.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
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
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  ASSERT_GE(fd, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  addr.sin_port = 0;
  ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  ASSERT_EQ(::listen(fd, 1), 0);
  socklen_t len = sizeof addr;
  ASSERT_EQ(::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len), 0);
  int port = ntohs(addr.sin_port);
  EXPECT_EQ(CheckPort(port, 1), -1);
  ::close(fd);
}

}  // namespace
