#include "platform/oxbase.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <vector>

#include "platform/env.h"

std::string OX_BASE_GetCurDir() {
  // Asked on every path a loader builds, so the buffer lives on the stack
  // rather than being allocated and zeroed each time.
  char buf[PATH_MAX + 1];
  if (!::getcwd(buf, sizeof buf)) return std::string();
  std::string dir(buf);
  if (dir.empty() || dir.back() != '/') dir.push_back('/');
  return dir;
}

int OX_BASE_System(const std::vector<std::string>& argv, std::string* output) {
  OxBase::CommandResult r = OxBase::Env::Current()->Run(argv, std::string(), std::string());
  if (output) *output = r.output;
  return r.exitCode;
}

int OX_BASE_ProcessCmd(const std::vector<std::string>& argv, const std::string& input,
                       const std::string& workDir) {
  OxBase::CommandResult r = OxBase::Env::Current()->Run(argv, input, workDir);
  return r.exitCode == 0 ? 1 : 0;
}

int OX_BASE_ParseIp4(const char* text, unsigned int* address) {
  if (!text) return -1;
  unsigned int value = 0;
  const char* p = text;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (*p != '.') return -1;
      ++p;
    }
    if (*p < '0' || *p > '9') return -1;
    unsigned int octet = 0;
    int digits = 0;
    while (*p >= '0' && *p <= '9') {
      octet = octet * 10 + static_cast<unsigned int>(*p++ - '0');
      if (++digits > 3 || octet > 255) return -1;
    }
    value = (value << 8) | octet;
  }
  if (*p != '\0') return -1;
  if (address) *address = value;
  return 0;
}
