#include "cli/secret_input.h"

#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>

#include "platform/secure_wipe.h"

namespace oxcfg {

SecretLine::SecretLine(size_t maxBytes) : max_(maxBytes), buffer_(new char[maxBytes + 2]()) {
  text = buffer_.get();
}

SecretLine::~SecretLine() { OxBase::SecureWipe(buffer_.get(), max_ + 2); }

bool readSecretLine(FILE* in, SecretLine& out) {
  size_t n = 0;
  bool any = false, tooLong = false;
  int c;
  // Byte by byte, so a line holding a NUL byte keeps its full length; one
  // byte beyond the limit is room for a carriage return before the line end.
  while ((c = std::fgetc(in)) != EOF) {
    any = true;
    if (c == '\n') break;
    if (n > out.maxBytes()) {
      tooLong = true;
      break;
    }
    out.text[n++] = static_cast<char>(c);
  }
  while (!tooLong && n > 0 && out.text[n - 1] == '\r') out.text[--n] = '\0';
  if (tooLong || n > out.maxBytes()) {
    OxBase::SecureWipe(out.text, n);
    return false;
  }
  out.text[n] = '\0';
  out.length = n;
  return any;
}

bool readHiddenLine(const char* prompt, SecretLine& out) {
  termios saved;
  const bool restore = tcgetattr(STDIN_FILENO, &saved) == 0;
  if (restore) {
    termios quiet = saved;
    quiet.c_lflag &= static_cast<tcflag_t>(~(ECHO | ECHONL));
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  // The prompt shows once echo is off: an answer typed (or sent) after it
  // is neither echoed nor flushed away.
  std::fprintf(stderr, "%s", prompt);
  std::fflush(stderr);
  const bool ok = readSecretLine(stdin, out);
  if (restore) tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  std::fprintf(stderr, "\n");
  return ok;
}

bool readSecret(const char* prompt, SecretLine& out) {
  if (isatty(STDIN_FILENO)) {
    if (readHiddenLine(prompt, out)) return true;
    std::fprintf(stderr, "oxcfg: nothing read\n");
    return false;
  }
  if (readSecretLine(stdin, out)) return true;
  std::fprintf(stderr, "oxcfg: no line read from standard input (or longer than %zu bytes)\n", out.maxBytes());
  return false;
}

bool readNewSecret(const char* prompt, const char* again, SecretLine& out) {
  if (!isatty(STDIN_FILENO)) return readSecret(prompt, out);
  SecretLine second(out.maxBytes());
  if (!readHiddenLine(prompt, out) || !readHiddenLine(again, second)) {
    std::fprintf(stderr, "oxcfg: nothing read\n");
    return false;
  }
  if (out.length != second.length || memcmp(out.text, second.text, out.length) != 0) {
    std::fprintf(stderr, "oxcfg: the entries do not match\n");
    return false;
  }
  return true;
}

}  // namespace oxcfg
