// Base-library helpers: the configuration directory, running commands and
// IPv4 parsing.
#ifndef OXCFG_PLATFORM_OXBASE_H
#define OXCFG_PLATFORM_OXBASE_H

#include <string>
#include <vector>

// The process's current working directory followed by "/": the directory that
// holds every configuration file. Asked anew on every call. Empty when the
// working directory cannot be determined.
std::string OX_BASE_GetCurDir();

// Runs a program from an argument vector (never through a shell), capturing
// its standard output and standard error into `output` when it is given.
// Returns the exit status, or -1 when the program could not be started.
int OX_BASE_System(const std::vector<std::string>& argv, std::string* output);

// Runs a program from an argument vector with `input` on its standard input,
// in `workDir` (the current directory when empty). Returns 1 when it ran and
// exited with status 0, otherwise 0.
int OX_BASE_ProcessCmd(const std::vector<std::string>& argv, const std::string& input = "",
                       const std::string& workDir = "");

// Parses a dotted IPv4 text ("a.b.c.d", four decimal numbers 0..255, no
// surrounding blanks). Returns 0 and the address in host byte order, or -1.
int OX_BASE_ParseIp4(const char* text, unsigned int* address);

#endif  // OXCFG_PLATFORM_OXBASE_H
