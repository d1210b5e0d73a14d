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
std::vector<Command>& commands();

struct RegisterShow {
  explicit RegisterShow(ShowSection s) { showSections().push_back(std::move(s)); }
};
struct RegisterCommand {
  explicit RegisterCommand(Command c) { commands().push_back(std::move(c)); }
};

// Prints a library result code and, for a failure, what it means; returns
// the exit status (0 for success).
int reportResult(const std::string& what, int code, const std::string& meaning = "");

// Bounded integer parsing for arguments; false when not a number in range.
bool parseInt(const std::string& text, long min, long max, long* out);

}  // namespace oxcfg

#endif  // OXCFG_CLI_CLI_H
