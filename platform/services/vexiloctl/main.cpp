// The table of commands, and what reads the command line.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>

#include "appfw/launcher.h"
#include "command.h"

namespace vexiloctl {

namespace {

constexpr char kAppHelp[] = "  APP    a package id or an application id\n";

constexpr char kYesHelp[] = "needed where standard input is not a terminal";

constexpr Command kCommands[] = {
    {"setting", "get", "KEY", 1, 1, false, "Prints the value of a settings key.",
     "  KEY    such as db/vexilo/db_reset\n"
     "Fails when the key was never set.\n",
     "vexiloctl setting get db/menu_widget/language", SettingGet},
    {"setting", "set", "KEY TYPE VALUE", 3, 3, false, "Stores a value under a settings key, whatever it held before.",
     "  KEY    such as db/vexilo/db_reset; keys that begin with memory/ are gone after a restart of the set\n"
     "  TYPE   int, bool, double or string\n"
     "  VALUE  a decimal number, true or false, or a text; after -- it may begin with --\n",
     "vexiloctl setting set db/menu_widget/language string de_DE.utf8", SettingSet},
    {"setting", "watch", "KEY...", 1, 1000, false, "Prints \"KEY = VALUE\" at every change, until it is ended.",
     "  KEY    one or more settings keys; a key need not be set yet\n"
     "Says \"watching\" on standard error from when on no change is missed.\n",
     "vexiloctl setting watch system/trevlin/STOperation", SettingWatch},
    {"engine", "list", "[CODE]", 0, 1, true, "Lists the transitions that the diagnosis engine recorded, oldest first.",
     "  CODE   the one issue to list, a decimal number\n", "vexiloctl engine list 10000001", EngineList},
    {"engine", "record", "CODE true|false [TIME]", 2, 3, false, "Records that an issue became true or false.",
     "  CODE   the issue, a decimal number from 1 to 2147483647\n"
     "  true   the issue is there now; false: it has cleared\n"
     "  TIME   a local time like 2024-03-07T09:05:00; now when it is left out\n",
     "vexiloctl engine record 10000001 true", EngineRecord},
    {"engine", "solutions", "", 0, 0, true, "Lists the solutions that were applied or declined, oldest first.", "",
     "vexiloctl engine solutions --json", EngineSolutions},
    {"engine", "run", "", 0, 0, true, "Diagnoses this machine now, records what has changed, and tells it.",
     "Shows what each collector took, every issue that is there (\"new\" when it was not before), and what has "
     "cleared.\n"
     "Takes ten seconds at most. A collector that takes longer is cut off, and rules that need it are undecided.\n"
     "Fails when the rules file is missing or has mistakes, or what has changed cannot be recorded.\n",
     "vexiloctl engine run", EngineRun},
    {"engine", "facts", "[NAME...]", 0, 1000, true, "Shows what the engine can tell of this machine now.",
     "  NAME   a fact (memory.available_percent), all of a kind (memory) or a settings key (setting:KEY)\n",
     "vexiloctl engine facts memory network.link", EngineFacts},
    {"engine", "rules check", "[FILE]", 0, 1, true, "Looks for mistakes in a rules file.",
     "  FILE   the set's own when it is left out\n"
     "Prints FILE:LINE:COLUMN and the reason for each. Fails when there is any. Notes on standard error name the\n"
     "issues that have no solution in the solution map.\n",
     "vexiloctl engine rules check rules.json", EngineRulesCheck},
    {"engine", "rules list", "", 0, 0, true, "Lists the rules by which the engine infers issues.",
     "Mistakes in the rules file are on standard error. Fails when there is any.\n", "vexiloctl engine rules list",
     EngineRulesList},
    {"remaining", "list", "", 0, 0, true, "Lists the issues that remained from the last scan.", "",
     "vexiloctl remaining list", RemainingList},
    {"events", "", "", 0, 0, true, "Lists the usage events, oldest first.",
     "With --json the lines are those of the event log as they stand.\n", "vexiloctl events", Events},
    {"result", "", "", 0, 0, true, "Shows where the result of a quick diagnosis is, and the issues in the newest.",
     "Fails when there is none.\n", "vexiloctl result", Result},
    {"apps", "list", "", 0, 0, true, "Lists the applications that the viewer can manage, and what they take.", "",
     "vexiloctl apps list --all", AppsList, "--all",
     "also those that belong to the set, and those that wait for the viewer's consent to the content terms"},
    {"apps", "size", "APP...", 1, 1000, true, "Measures applications.", kAppHelp,
     "vexiloctl apps size tv.lumora.cinema", AppsSize},
    {"apps", "clear-cache", "APP...", 1, 1000, true, "Empties the caches of applications.", kAppHelp,
     "vexiloctl apps clear-cache tv.lumora.cinema", AppsClearCache},
    {"apps", "clear-data", "APP...", 1, 1000, true,
     "Empties the data and the caches of applications, as if they had just been installed.",
     "  APP    a package id or an application id; with one that is locked, nothing is emptied\n"
     "Says first what goes, and at last what the file system says. It does not ask.\n",
     "vexiloctl apps clear-data tv.lumora.cinema", AppsClearData, "--yes", kYesHelp},
    {"apps", "uninstall", "APP...", 1, 1000, true, "Removes applications, with all that they keep.",
     "  APP    a package id or an application id; with one that may not be removed, none is\n"
     "Says first what goes, and at last what the file system says. It does not ask.\n",
     "vexiloctl apps uninstall tv.lumora.cinema", AppsUninstall, "--yes", kYesHelp},
    {"storage", "", "", 0, 0, true, "Shows how full the partition of the applications is, and what each takes.", "",
     "vexiloctl storage", Storage},
    {"launch", "", "APPID [KEY=VALUE...]", 1, 1000, true, "Launches an application by its desktop entry.",
     "  APPID      the name of the entry without .desktop\n"
     "  KEY=VALUE  handed to the application\n",
     "vexiloctl launch org.varno.menu launchby=others type=networkstatus", Launch},
    {"reports", "list", "", 0, 0, true, "Lists the error reports, newest first.", "", "vexiloctl reports list",
     ReportsList},
    {"reports", "show", "NAME", 1, 1, true, "Shows what an error report is about and what is in it.",
     "  NAME   as in the list; .tar.zst or .tar.gz may be left out\n",
     "vexiloctl reports show 20240307T090500Z-SOUND-QUVAKOV", ReportsShow},
    {"reports", "export", "NAME FOLDER", 2, 2, true, "Writes an error report into a folder, as one file to hand on.",
     "  NAME    as in the list; .tar.zst or .tar.gz may be left out\n"
     "  FOLDER  gets the file, under the report's name; what is there is never replaced\n"
     "The file is for its owner only. First in it is summary.txt, which tells in plain words what the report is about, "
     "what\n"
     "is in it, what is missing, and what was left out for privacy.\n",
     "vexiloctl reports export 20240307T090500Z-SOUND-QUVAKOV /media/stick", ReportsExport},
    {"reports", "remove", "NAME...", 1, 1000, true, "Removes error reports.",
     "  NAME   as in the list; with an unknown one none is removed\n",
     "vexiloctl reports remove 20240307T090500Z-SOUND-QUVAKOV", ReportsRemove},
};

std::string NameOf(const Command& command) {
  return std::string(command.group) + (*command.name ? " " : "") + command.name;
}

std::string UsageOf(const Command& command) {
  return NameOf(command) + (*command.arguments ? " " : "") + command.arguments +
         (*command.option ? std::string(" [") + command.option + "]" : "") + (command.lists ? " [--json]" : "");
}

std::string HelpOf(const Command& command) {
  return "Usage: vexiloctl " + UsageOf(command) + "\n\n" + command.purpose + "\n" + command.help +
         (*command.option ? std::string("  ") + command.option + "  " + command.optionHelp + "\n" : "") +
         (command.lists ? "  --json prints one JSON object a line, for programs\n" : "") +
         "\nExample: " + command.example + "\n";
}

std::string HelpOfGroup(const std::string& group) {
  std::string text;
  for (const Command& command : kCommands)
    if (group == command.group) text.append(text.empty() ? "" : "\n").append(HelpOf(command));
  return text;
}

std::string HelpOfAll() {
  size_t width = 0;
  for (const Command& command : kCommands) width = std::max(width, UsageOf(command).size());
  std::string text =
      "Usage: vexiloctl GROUP [COMMAND] [ARGUMENT...]\n\nThe settings, records, applications and reports of this "
      "set.\n\n";
  for (const Command& command : kCommands) {
    const std::string usage = UsageOf(command);
    text.append("  ").append(usage).append(width - usage.size() + 2, ' ').append(command.purpose).append("\n");
  }
  return text +
         "\nExample: vexiloctl engine list\n"
         "More:    vexiloctl GROUP --help, vexiloctl GROUP COMMAND --help\n"
         "Exit codes: 0 done, 1 failed, 2 wrong usage\n";
}

struct CommandLine {
  std::vector<std::string> words;
  bool help = false;
  bool json = false;
  std::string option;  // of one command only
};

bool IsOption(const std::string& word) {
  return std::any_of(std::begin(kCommands), std::end(kCommands),
                     [&word](const Command& command) { return *command.option && word == command.option; });
}

/// A usage error, with where to look.
[[noreturn]] void Misused(const std::string& problem, const std::string& subject) {
  throw UsageError(problem + "\nTry 'vexiloctl " + subject + (subject.empty() ? "" : " ") + "--help'.");
}

CommandLine Split(int argc, char** argv) {
  CommandLine line;
  bool options = true;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (!options || (word != "-h" && !word.starts_with("--")))
      line.words.push_back(word);
    else if (word == "--")
      options = false;
    else if (word == "--help" || word == "-h")
      line.help = true;
    else if (word == "--json")
      line.json = true;
    else if (IsOption(word))
      line.option = word;
    else
      Misused("unknown option \"" + word + "\"", "");
  }
  return line;
}

/// The words of a command's name after its group.
std::vector<std::string> NamesOf(const Command& command) {
  std::istringstream name(command.name);
  return {std::istream_iterator<std::string>(name), {}};
}

/// The command that the words name, and how many they are; null and 1 for a group alone.
std::pair<const Command*, size_t> Find(const std::vector<std::string>& words) {
  bool group = false;
  std::string among;  // the commands whose names begin as the words do
  for (const Command& command : kCommands) {
    if (words[0] != command.group) continue;
    group = true;
    if (!*command.name) return {&command, 1};
    const std::vector<std::string> names = NamesOf(command);
    if (words.size() > names.size() && std::equal(names.begin(), names.end(), words.begin() + 1))
      return {&command, 1 + names.size()};
    if (words.size() > 1 && names.size() > 1 && names[0] == words[1])
      among.append(among.empty() ? "" : " or ").append(names[1]);
  }
  if (!group) Misused("unknown group \"" + words[0] + "\"", "");
  if (!among.empty()) Misused("\"" + words[0] + " " + words[1] + "\" needs " + among, words[0]);
  if (words.size() > 1) Misused("unknown command \"" + words[1] + "\" of \"" + words[0] + "\"", words[0]);
  return {nullptr, 1};
}

void RunCommand(const Command& command, const Arguments& arguments, const std::string& option) {
  const size_t count = arguments.values.size();
  if (count < command.minimum) Misused("\"" + NameOf(command) + "\" needs " + command.arguments, NameOf(command));
  if (count > command.maximum)
    Misused("\"" + NameOf(command) + "\" does not take \"" + arguments.values[command.maximum] + "\"", NameOf(command));
  if (arguments.json && !command.lists) Misused("\"" + NameOf(command) + "\" does not take --json", NameOf(command));
  if (!option.empty() && option != command.option)
    Misused("\"" + NameOf(command) + "\" does not take " + option, NameOf(command));
  try {
    command.run(arguments);
  } catch (const UsageError& error) {
    Misused(error.what(), NameOf(command));
  }
}

void Run(int argc, char** argv) {
  const CommandLine line = Split(argc, argv);
  if (line.words.empty() && line.help) return Print(HelpOfAll());
  if (line.words.empty()) Misused("no group and command given", "");
  const auto [command, named] = Find(line.words);
  if (line.help) return Print(command ? HelpOf(*command) : HelpOfGroup(line.words[0]));
  if (!command) Misused("\"" + line.words[0] + "\" needs a command", line.words[0]);
  RunCommand(*command,
             {{line.words.begin() + static_cast<ptrdiff_t>(named), line.words.end()}, line.json, !line.option.empty()},
             line.option);
}

/// Where a standard descriptor is closed the next file that is opened would take its place, and the output.
void OccupyStandardDescriptors() {
  int fd;
  do {
    fd = open("/dev/null", O_RDONLY);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

int Main(int argc, char** argv) {
  OccupyStandardDescriptors();
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  app_framework::KeepLaunchEnvironment();
  setenv("VEXILO_LOG_TARGET", "file", 0);
  try {
    Run(argc, argv);
    Flush();
    return kDone;
  } catch (const OutputClosed&) {
    return kDone;
  } catch (const UsageError& error) {
    Complain(error.what());
    return kUsage;
  } catch (const std::exception& error) {
    Complain(error.what());
    return kFailed;
  }
}

}  // namespace

}  // namespace vexiloctl

int main(int argc, char** argv) {
  return vexiloctl::Main(argc, argv);
}
