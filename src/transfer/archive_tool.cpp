#include "transfer/archive_tool.h"

#include "platform/env.h"
#include "platform/osl.h"

namespace OxConfigMgr {
namespace transfer {

namespace {

constexpr int kExecutable = 1;  // access(2) X_OK

// The system tool by its usual absolute path, so a service's short PATH does
// not matter; the bare name (searched in PATH) when it lies elsewhere.
std::string systemTool(const char* name) {
  for (const char* dir : {"/usr/bin/", "/bin/"}) {
    std::string path = std::string(dir) + name;
    if (OSL_AccessFile(path.c_str(), kExecutable) == 0) return path;
  }
  return name;
}

bool printable(unsigned char c) { return c >= 0x20 && c <= 0x7e; }

}  // namespace

std::string archiverPassword(const std::string& password) {
  bool plain = true;
  for (unsigned char c : password) plain = plain && printable(c);
  if (plain) return password;
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(password.size() * 3);
  for (unsigned char c : password) {
    if (printable(c) && c != '%') {
      out.push_back(static_cast<char>(c));
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    }
  }
  return out;
}

ArchiverRun runArchiver(const std::vector<std::string>& args, const std::string& input,
                        const std::string& workDir, const ArchiveLimits& limits) {
  std::vector<std::string> argv = {
      systemTool("timeout"), "-k", "5", std::to_string(limits.timeoutSeconds > 0 ? limits.timeoutSeconds : 1),
      systemTool("prlimit"), "--fsize=" + std::to_string(limits.maxEntryBytes), "--core=0", "--"};
  argv.insert(argv.end(), args.begin(), args.end());
  OxBase::CommandResult r = OxBase::Env::Current()->Run(argv, input, workDir);
  ArchiverRun run;
  run.exitCode = r.exitCode;
  run.output = std::move(r.output);
  return run;
}

}  // namespace transfer
}  // namespace OxConfigMgr
