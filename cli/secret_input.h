// Reading secrets for oxcfg commands: from the terminal without echo, or
// one line of standard input when it is not a terminal. Secrets are never
// taken from the command line, where other users of the machine can read
// them.
#ifndef OXCFG_CLI_SECRET_INPUT_H
#define OXCFG_CLI_SECRET_INPUT_H

#include <cstddef>
#include <cstdio>
#include <memory>

namespace oxcfg {

// A secret line of at most `maxBytes` bytes (any byte but the line end),
// wiped when it goes: a longer line is refused, never cut. `text` is
// NUL-terminated after `length` bytes.
class SecretLine {
 public:
  explicit SecretLine(size_t maxBytes = 1024);
  ~SecretLine();
  SecretLine(const SecretLine&) = delete;
  SecretLine& operator=(const SecretLine&) = delete;

  size_t maxBytes() const { return max_; }

  char* text;
  size_t length = 0;

 private:
  size_t max_;
  std::unique_ptr<char[]> buffer_;
};

// Reads one line into `out` without its line end. False at end of input
// before any byte or when the line does not fit.
bool readSecretLine(FILE* in, SecretLine& out);

// Prompts on standard error and reads a line from the terminal with echo
// off.
bool readHiddenLine(const char* prompt, SecretLine& out);

// On a terminal: prompts and reads with echo off; otherwise reads one line
// of standard input. False (with a message on standard error) when nothing
// was read.
bool readSecret(const char* prompt, SecretLine& out);

// On a terminal: asks twice and insists on the same answer; otherwise reads
// one line of standard input. False (with a message on standard error) when
// nothing was read or the answers differ.
bool readNewSecret(const char* prompt, const char* again, SecretLine& out);

}  // namespace oxcfg

#endif  // OXCFG_CLI_SECRET_INPUT_H
