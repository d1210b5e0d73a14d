// The oxcfg command-line host: shared pieces of its commands.
//
// Each configuration object contributes a `show` section and, where it has
// setters, commands, by registering them from its own file with the static
// registrars below.
#ifndef OXCFG_CLI_CLI_H
#define OXCFG_CLI_CLI_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace oxcfg {

// Rows of one section of `show`: label and value, in display order.
using Rows = std::vector<std::pair<std::string, std::string>>;

struct ShowSection {
  std::string name;   // as typed after `show`
  std::string title;  // heading of the table
  // Fills the rows; false when the object is not started (section skipped).
  std::function<bool(Rows&)> fill;
};

struct Command {
  std::string name;   // first word(s) on the command line, e.g. "set product-name"
  std::string usage;  // arguments, for the help text
  std::string help;   // one line
  // Runs with the arguments that follow the name; the library is started.
  // Returns the process exit status.
  std::function<int(const std::vector<std::string>& args)> run;
};

std::vector<ShowSection>& showSections();
// Commands that run once the library has started in the working directory.
std::vector<Command>& commands();
// Commands that run without starting the library (init, doctor, help...).
std::vector<Command>& builtinCommands();
// Built-in commands first, then the others by name: the order of the help
// text and of the manual page. Internal commands (no help line) are left out.
std::vector<const Command*> allCommands();

struct RegisterShow {
  explicit RegisterShow(ShowSection s) { showSections().push_back(std::move(s)); }
};
struct RegisterCommand {
  explicit RegisterCommand(Command c) { commands().push_back(std::move(c)); }
};
struct RegisterBuiltin {
  explicit RegisterBuiltin(Command c) { builtinCommands().push_back(std::move(c)); }
};

// The command whose name matches the most leading words of `args`; null when
// none does. `words` receives the number of words its name has.
const Command* findCommand(const std::vector<std::string>& args, size_t* words);

// The example line of a command's help ("oxcfg -C /opt/gw ...").
std::string exampleFor(const Command& c);

// Prints the short usage on standard error (for usage errors).
void shortUsage();

// Links the system's 7za into `dir` when it has none (a dangling link is
// replaced); false when the system has none either.
bool linkArchiverInto(const std::string& dir);

// Words that may follow a command on the command line (for instance the
// field names of `set arc`), offered by the shell completion. Registered
// beside the command by its own file.
struct RegisterWords {
  RegisterWords(const std::string& command, std::function<std::vector<std::string>()> words);
};
std::vector<std::pair<std::string, std::function<std::vector<std::string>()>>>& commandWords();

// Exit statuses of every command: success, a value the library refused (or
// a failure of the library or the system), a command line that is wrong.
constexpr int kExitOk = 0;
constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;

// True when the command line carried --json: every command that prints data
// prints one JSON object on standard output instead of text.
bool jsonOutput();
void setJsonOutput(bool on);

// JSON string literal (with the quotes) of `text`.
std::string jsonString(const std::string& text);

// Prints `rows` as an aligned table under `title` (no heading when empty),
// or with --json as one JSON object of strings.
void printRows(const std::string& title, const Rows& rows);

// Prints a library result code and, for a failure, what it means; returns
// the exit status: kExitOk for result 0, kExitRefused otherwise. Success goes
// to standard output, failure to standard error; with --json both print
// {"command", "result", "ok", "meaning"} on standard output.
int reportResult(const std::string& what, int code, const std::string& meaning = "");

// A usage error: prints "oxcfg: MESSAGE" on standard error and returns
// kExitUsage.
int usageError(const std::string& message);

// Bounded integer parsing for arguments; false when not a number in range.
bool parseInt(const std::string& text, long min, long max, long* out);

}  // namespace oxcfg

#endif  // OXCFG_CLI_CLI_H
