// oxcfg: the help text, the manual page and the shell completion. All three
// are made from the one table of commands (name, usage, help line) that the
// command files register, plus one example per command, so the manual page
// cannot drift from `oxcfg help`.
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cli/cli.h"

namespace oxcfg {

std::string showSectionNames();

namespace {

const char kSynopsis[] = "oxcfg [-C DIR] [--json] COMMAND [ARGUMENTS]";
const char kExampleDir[] = "/opt/gateway/config";

const char kDescription[] =
    "oxcfg lays out a working directory of the gateway's configuration library from the factory "
    "defaults, checks one, starts the library there and reads or changes its settings. Every command "
    "but init, doctor and help first starts the library in the working directory (the current one, or "
    "DIR of -C).";

const char* const kExitStatus[][2] = {
    {"0", "success"},
    {"1", "the library refused a value or failed (its result code is in the message), or a finding of doctor"},
    {"2", "a usage error: unknown command, missing or malformed argument"},
};

// Examples that the usage alone does not suggest well.
const std::map<std::string, std::string>& examples() {
  static const std::map<std::string, std::string> table = {
      {"init", "oxcfg init /opt/gateway/config"},
      {"doctor", "oxcfg doctor /opt/gateway/config --json"},
      {"help", "oxcfg help set network http-port"},
      {"manpage", "oxcfg manpage > oxcfg.1"},
      {"completion", "oxcfg completion > /etc/bash_completion.d/oxcfg"},
      {"show", "oxcfg -C /opt/gateway/config show network --json"},
      {"export", "oxcfg -C /opt/gateway/config export /tmp/gateway.zip"},
      {"import", "oxcfg -C /opt/gateway/config import /tmp/gateway.zip"},
      {"passwd", "printf 'n3w-Secret\\n' | oxcfg -C /opt/gateway/config passwd 2"},
      {"bind", "oxcfg -C /opt/gateway/config bind lumen 192.168.1.20"},
      {"set ext-ip", "oxcfg -C /opt/gateway/config set ext-ip 192.168.1.20 203.0.113.7"},
      {"set dev-ext", "oxcfg -C /opt/gateway/config set dev-ext 192.168.1.20 10.0.0.20"},
      {"set arc", "oxcfg -C /opt/gateway/config set arc sg.port 1025"},
      {"set product-name", "oxcfg -C /opt/gateway/config set product-name 'Gate 7'"},
      {"set httphost", "oxcfg -C /opt/gateway/config set httphost --ip 192.168.1.5 --port 8080 --enable 1"},
      {"set devicemgmt", "oxcfg -C /opt/gateway/config set devicemgmt AccessControl"},
      {"set alarmmonitor", "oxcfg -C /opt/gateway/config set alarmmonitor --enable 1"},
      {"set log level", "oxcfg -C /opt/gateway/config set log level 3"},
      {"set network wisp5-alarm-type", "oxcfg -C /opt/gateway/config set network wisp5-alarm-type 2"},
      {"codes list", "oxcfg -C /opt/gateway/config codes list sg --page 2 --size 10"},
      {"codes convert", "oxcfg -C /opt/gateway/config codes convert ZONE_BURGLARY_ALARM"},
      {"time set", "sudo oxcfg -C /opt/gateway/config time set 2024-05-01T08:30:00+08:00"},
      {"cert req", "printf 'key password\\n' | oxcfg -C /opt/gateway/config cert req --country DE --cn gw.example"},
      {"cert selfsign",
       "printf 'key password\\n' | oxcfg -C /opt/gateway/config cert selfsign --days 365 --country DE --cn gw.example"},
      {"cert upload", "oxcfg -C /opt/gateway/config cert upload /tmp/cert.pem"},
      {"cert download-req", "oxcfg -C /opt/gateway/config cert download-req /tmp/certreq.pem"},
      {"storage upload", "oxcfg -C /opt/gateway/config storage upload /tmp/door.jpg --path /pictures/door.jpg"},
      {"storage delete", "oxcfg -C /opt/gateway/config storage delete http://192.168.1.20:9000/pss/1/ab/door.jpg"},
  };
  return table;
}

// An example value for each placeholder of a usage text.
std::string sampleFor(const std::string& word) {
  static const std::map<std::string, std::string> samples = {
      {"PORT", "8080"},       {"VALUE", "1"},       {"MIN", "20000"}, {"MAX", "20100"},
      {"SECONDS", "30"},      {"COUNT", "3"},       {"on|off", "on"}, {"0|1", "1"},
      {"FILE", "/tmp/file"},  {"FILE|-", "-"},      {"[--req]", ""},  {"[LEVEL]", ""},
      {"0..7", "3"},          {"1|2", "1"},         {"TEXT", "2024-05-01T08:30:00+08:00"},
  };
  auto it = samples.find(word);
  if (it != samples.end()) return it->second;
  if (!word.empty() && word[0] == '[') return "";  // optional parts are left out
  return word;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> out;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t sp = text.find(' ', pos);
    if (sp == std::string::npos) sp = text.size();
    if (sp > pos) out.push_back(text.substr(pos, sp - pos));
    pos = sp + 1;
  }
  return out;
}

// Roff text: backslashes, minus signs and a leading control character are
// escaped, so help lines print as written.
std::string roff(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\\') out += "\\e";
    else if (c == '-') out += "\\-";
    else out += c;
  }
  if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
  return out;
}

void printCommandHelp(const Command& c) {
  std::printf("usage: oxcfg [-C DIR] %s%s%s\n\n", c.name.c_str(), c.usage.empty() ? "" : " ", c.usage.c_str());
  std::printf("%s\n", c.help.c_str());
  if (c.name == "show") std::printf("Sections: %s\n", showSectionNames().c_str());
  std::printf("\nExample:\n  %s\n", exampleFor(c).c_str());
}

void printCommandJson(const Command& c, bool last, const char* indent = "  ") {
  std::printf("%s{\"name\": %s, \"usage\": %s, \"help\": %s, \"example\": %s}%s\n", indent, jsonString(c.name).c_str(),
              jsonString(c.usage).c_str(), jsonString(c.help).c_str(), jsonString(exampleFor(c)).c_str(),
              last ? "" : ",");
}

void fullHelp() {
  std::printf("usage: %s\n\n%s\n\nCommands:\n", kSynopsis, kDescription);
  for (const Command* c : allCommands()) {
    std::printf("  %s%s%s\n      %s\n", c->name.c_str(), c->usage.empty() ? "" : " ", c->usage.c_str(),
                c->help.c_str());
  }
  std::printf("\nSections of show: %s\n\nExit status:\n", showSectionNames().c_str());
  for (const auto& e : kExitStatus) std::printf("  %s  %s\n", e[0], e[1]);
  std::printf("\nRun `oxcfg help COMMAND` for one command with an example.\n");
}

int cmdHelp(const std::vector<std::string>& args) {
  if (args.empty()) {
    if (jsonOutput()) {
      std::printf("[\n");
      auto all = allCommands();
      for (size_t i = 0; i < all.size(); ++i) printCommandJson(*all[i], i + 1 == all.size());
      std::printf("]\n");
    } else {
      fullHelp();
    }
    return kExitOk;
  }
  size_t words = 0;
  const Command* c = findCommand(args, &words);
  // "help set network" names no command: list the ones it begins.
  if (!c || words != args.size()) {
    std::string prefix;
    for (const auto& a : args) prefix += (prefix.empty() ? "" : " ") + a;
    bool any = false;
    for (const Command* k : allCommands()) {
      if (k->name.compare(0, prefix.size() + 1, prefix + " ") == 0) {
        if (!any) std::printf("commands beginning with '%s':\n", prefix.c_str());
        std::printf("  %s %s\n      %s\n", k->name.c_str(), k->usage.c_str(), k->help.c_str());
        any = true;
      }
    }
    if (any) return kExitOk;
    return usageError("no command '" + prefix + "' (run oxcfg --help)");
  }
  if (jsonOutput()) {
    printCommandJson(*c, true, "");
  } else {
    printCommandHelp(*c);
  }
  return kExitOk;
}

int cmdManpage(const std::vector<std::string>& args) {
  if (!args.empty()) return usageError("manpage takes no arguments");
  std::printf(".TH OXCFG 1 \"\" \"oxconfigmgr %s\" \"User Commands\"\n", OXCFG_VERSION);
  std::printf(".SH NAME\noxcfg \\- lay out, check, read and change the gateway's configuration directory\n");
  std::printf(".SH SYNOPSIS\n.B oxcfg\n[\\fB\\-C\\fR \\fIDIR\\fR] [\\fB\\-\\-json\\fR] \\fICOMMAND\\fR "
              "[\\fIARGUMENTS\\fR]\n");
  std::printf(".br\n.B oxcfg\n\\fB\\-\\-help\\fR | \\fBhelp\\fR [\\fICOMMAND\\fR]\n");
  std::printf(".SH DESCRIPTION\n%s\n", roff(kDescription).c_str());
  std::printf(".PP\nWith \\fB\\-\\-json\\fR every command that prints data prints one JSON value on standard "
              "output. Errors go to standard error.\n");
  std::printf(".SH COMMANDS\n");
  for (const Command* c : allCommands()) {
    std::printf(".TP\n.B %s", roff(c->name).c_str());
    if (!c->usage.empty()) std::printf(" \\fI%s\\fR", roff(c->usage).c_str());
    std::printf("\n%s\n", roff(c->help).c_str());
    std::printf(".br\nExample: \\fB%s\\fR\n", roff(exampleFor(*c)).c_str());
  }
  std::printf(".SH SECTIONS\nThe sections of \\fBshow\\fR: %s.\n", roff(showSectionNames()).c_str());
  std::printf(".SH EXIT STATUS\n");
  for (const auto& e : kExitStatus) std::printf(".TP\n.B %s\n%s\n", e[0], roff(e[1]).c_str());
  std::printf(".SH FILES\n.TP\n.I /usr/share/oxconfigmgr/factory\nthe factory defaults that \\fBinit\\fR "
              "copies\n");
  return kExitOk;
}

// The completion script asks the tool itself for the words, so it knows
// every command, section and field of this build.
const char kBashCompletion[] = R"BASH(# bash completion of oxcfg
_oxcfg() {
  local cur prev
  cur="${COMP_WORDS[COMP_CWORD]}"
  prev="${COMP_WORDS[COMP_CWORD-1]}"
  case "$prev" in
    -C|--directory|init|doctor) COMPREPLY=( $(compgen -d -- "$cur") ); return ;;
  esac
  local words=()
  local i
  for (( i=1; i<COMP_CWORD; i++ )); do
    case "${COMP_WORDS[i]}" in
      -C|--directory) (( i++ )) ;;
      --json) ;;
      *) words+=( "${COMP_WORDS[i]}" ) ;;
    esac
  done
  local IFS=$'\n'
  COMPREPLY=( $(compgen -W "$(oxcfg __complete "${words[@]}" 2>/dev/null)" -- "$cur") )
  if [ ${#COMPREPLY[@]} -eq 0 ]; then
    COMPREPLY=( $(compgen -f -- "$cur") )
  fi
}
complete -F _oxcfg oxcfg
)BASH";

int cmdCompletion(const std::vector<std::string>& args) {
  if (!args.empty() && !(args.size() == 1 && args[0] == "bash")) return usageError("completion takes only bash");
  std::fputs(kBashCompletion, stdout);
  return kExitOk;
}

// The words that may come after `typed` (the words before the one being
// completed), one a line.
int cmdComplete(const std::vector<std::string>& typed) {
  std::set<std::string> out;
  const size_t n = typed.size();
  // The next word of every command name that begins with the typed words.
  for (const Command* c : allCommands()) {
    std::vector<std::string> w = split(c->name);
    if (w.size() <= n) continue;
    bool match = true;
    for (size_t i = 0; i < n; ++i) match = match && w[i] == typed[i];
    if (match) out.insert(w[n]);
  }
  size_t words = 0;
  const Command* c = n ? findCommand(typed, &words) : nullptr;
  if (n >= 1 && typed[0] == "help") {
    std::vector<std::string> rest(typed.begin() + 1, typed.end());
    for (const Command* k : allCommands()) {
      std::vector<std::string> w = split(k->name);
      if (w.size() <= rest.size()) continue;
      bool match = true;
      for (size_t i = 0; i < rest.size(); ++i) match = match && w[i] == rest[i];
      if (match) out.insert(w[rest.size()]);
    }
  } else if (c) {
    if (c->name == "show" && words == n) {
      for (const auto& s : showSections()) out.insert(s.name);
    }
    for (const auto& entry : commandWords()) {
      if (entry.first == c->name && words == n) {
        for (const auto& w : entry.second()) out.insert(w);
      }
    }
    // Options named in the usage, and the fixed choices of an "a|b" word.
    for (const auto& u : split(c->usage)) {
      std::string word = u;
      while (!word.empty() && (word.front() == '[' || word.front() == '(')) word.erase(0, 1);
      while (!word.empty() && (word.back() == ']' || word.back() == ')')) word.pop_back();
      if (word.compare(0, 2, "--") == 0) {
        out.insert(word);
      } else if (word.find('|') != std::string::npos && words == n) {
        size_t pos = 0;
        while (pos <= word.size()) {
          size_t bar = word.find('|', pos);
          std::string choice = word.substr(pos, bar == std::string::npos ? std::string::npos : bar - pos);
          if (!choice.empty() && choice != "-" && choice != "FILE" && choice != "IP") out.insert(choice);
          if (bar == std::string::npos) break;
          pos = bar + 1;
        }
      }
    }
  }
  if (n == 0) out.insert("--json");
  for (const auto& w : out) std::printf("%s\n", w.c_str());
  return kExitOk;
}

RegisterBuiltin g_help({"help", "[COMMAND]", "print the help of every command, or of COMMAND with an example",
                        cmdHelp});
RegisterBuiltin g_manpage({"manpage", "", "print the manual page (roff), made from the same text as help",
                           cmdManpage});
RegisterBuiltin g_completion({"completion", "[bash]", "print the bash completion script", cmdCompletion});
// Internal: the completion script's source of words. Not listed in help.
RegisterBuiltin g_complete({"__complete", "[WORD...]", "", cmdComplete});

}  // namespace

std::string exampleFor(const Command& c) {
  auto it = examples().find(c.name);
  if (it != examples().end()) return it->second;
  std::string line = std::string("oxcfg -C ") + kExampleDir + " " + c.name;
  for (const auto& word : split(c.usage)) {
    std::string sample = sampleFor(word);
    if (!sample.empty()) line += " " + sample;
  }
  return line;
}

void shortUsage() {
  std::fprintf(stderr, "usage: %s\nRun `oxcfg --help` for the commands, `oxcfg help COMMAND` for one.\n",
               kSynopsis);
}

}  // namespace oxcfg
