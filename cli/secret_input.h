// Reading secrets for oxcfg commands: from the terminal without echo, or
// one line of standard input when it is not a terminal. Secrets are never
// taken from the command line, where other users of the machine can read
// them.
#ifndef OXCFG_CLI_SECRET_INPUT_H
#define OXCFG_CLI_SECRET_INPUT_H

#include <cstddef>
#include <cstdio>

namespace oxcfg {

// A secret line, wiped when it goes. Room for 1024 characters, the line end
// and the terminator: a longer line is refused, never cut.
struct SecretLine {
  static constexpr size_t kCapacity = 1027;
  char text[kCapacity] = {0};
  ~SecretLine();
};

// Reads one line into `out` without its line end. False at end of input or
// when the line does not fit.
bool readSecretLine(FILE* in, SecretLine& out);

// Prompts on standard error and reads a line from the terminal with echo
// off.
bool readHiddenLine(const char* prompt, SecretLine& out);

// On a terminal: asks twice and insists on the same answer; otherwise reads
// one line of standard input. False (with a message on standard error) when
// nothing was read or the answers differ.
bool readNewSecret(const char* prompt, const char* again, SecretLine& out);

}  // namespace oxcfg

#endif  // OXCFG_CLI_SECRET_INPUT_H
