// Feeds arbitrary root logger lines of "log4cxx.properties" to the rewrite
// that a log level change makes (read, find the level, replace it, write,
// reload the logging configuration). Only the first line of the input is
// used, behind the key, so no input can define an appender that writes
// files outside the private working directory.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_workdir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  oxfuzz::enterWorkDir("log4j");
  std::string line(reinterpret_cast<const char*>(data), size);
  line = line.substr(0, line.find_first_of("\r\n"));
  std::string text = "# properties\nlog4j.rootLogger=" + line + "\n";
  if (!oxfuzz::putFile("log4cxx.properties", text)) return 0;
  OxConfigMgr::CMaintain maintain;
  maintain.ModifyLog4j();
  std::string path = "log4cxx.properties";
  std::string content;
  if (!maintain.ReadLog4j(path, content)) std::abort();
  // The rewrite touches the level only: the file keeps its other lines.
  if (content.compare(0, 13, "# properties\n") != 0) std::abort();
  return 0;
}
