#include "cli/secret_input.h"

#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>

namespace oxcfg {

SecretLine::~SecretLine() { explicit_bzero(text, sizeof text); }

bool readSecretLine(FILE* in, SecretLine& out) {
  if (!std::fgets(out.text, sizeof out.text, in)) return false;
  size_t n = strlen(out.text);
  const bool complete = n > 0 && out.text[n - 1] == '\n';
  if (!complete && !std::feof(in)) return false;  // longer than the buffer
  while (n > 0 && (out.text[n - 1] == '\n' || out.text[n - 1] == '\r')) out.text[--n] = '\0';
  return true;
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

bool readNewSecret(const char* prompt, const char* again, SecretLine& out) {
  if (!isatty(STDIN_FILENO)) {
    if (readSecretLine(stdin, out)) return true;
    std::fprintf(stderr, "oxcfg: no line read from standard input (or longer than 1024 characters)\n");
    return false;
  }
  SecretLine second;
  if (!readHiddenLine(prompt, out) || !readHiddenLine(again, second)) {
    std::fprintf(stderr, "oxcfg: nothing read\n");
    return false;
  }
  if (strcmp(out.text, second.text) != 0) {
    std::fprintf(stderr, "oxcfg: the entries do not match\n");
    return false;
  }
  return true;
}

}  // namespace oxcfg
