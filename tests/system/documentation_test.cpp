#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "system/daemon.h"

namespace tests {
namespace {

std::string contents(const std::string& path) {
  std::ifstream file(SOURCE_DIR "/" + path);
  EXPECT_TRUE(file) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The text of a man page, without its markup.
std::string man_page(const std::string& name) {
  const std::string text = std::regex_replace(contents("docs/man/" + name), std::regex(R"(\\f[A-Z])"), "");
  return std::regex_replace(text, std::regex(R"(\\-)"), "-");
}

/// The sample of a configuration with the settings that are comments in it.
std::string with_all_keys(const std::string& config) {
  return std::regex_replace(config, std::regex("^#([a-z_]+ =)", std::regex::multiline), "$1");
}

/// The first group of each match.
std::set<std::string> all(const std::string& text, const char* pattern) {
  const std::regex expression(pattern, std::regex::multiline);
  std::set<std::string> found;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match) {
    found.insert((*match)[1]);
  }
  return found;
}

/// The words of a text, options with their dashes.
std::set<std::string> words(const std::string& text) {
  return all(text, "([-A-Za-z0-9_]*[A-Za-z0-9])");
}

/// All options and subcommands that a command's help shows, and those of its subcommands.
std::set<std::string> shown(std::vector<std::string> command) {
  command.emplace_back("--help");
  Process process(command);
  EXPECT_TRUE(process.wait());
  command.pop_back();
  const std::string help = process.standard_output();
  std::set<std::string> found = all(help, R"((?:^|[\s,])(--?[A-Za-z][-A-Za-z]*))");
  const auto list = help.find("\nSubcommands:\n");
  if (list != std::string::npos) {
    for (const std::string& name : all(help.substr(list, help.find("\n\n", list) - list), "^  ([a-z]+)")) {
      found.insert(name);
      command.push_back(name);
      found.merge(shown(command));
      command.pop_back();
    }
  }
  return found;
}

TEST(DocumentationTest, EverythingInTheHelpIsInTheManPageAndBothCompletions) {
  for (const std::string page : {"tolquil.8", "ecusim.1", "quilctl.1", "tolquil-uplink.8"}) {
    const std::string name = page.substr(0, page.find('.'));
    SCOPED_TRACE(name);
    const std::string for_zsh = contents("deploy/completion/_" + name);
    const auto options = shown({PROGRAM_DIR "/" + name});
    EXPECT_THAT(options, Contains("--help"));
    for (const auto& text : {man_page(page), contents("deploy/completion/" + name + ".bash"), for_zsh}) {
      EXPECT_THAT(words(text), testing::IsSupersetOf(options)) << text.substr(0, 200);
    }
    // Zsh runs the file as the body of a function, the first time only: local names of that run no longer
    // exist afterwards.
    EXPECT_THAT(all(for_zsh, "^(local|typeset|declare|integer)\\b"), IsEmpty());
  }
}

TEST(DocumentationTest, CompletionOffersSuitableWords) {
  const TempDir dir;
  dir.write("mine.json", "");
  dir.write("mine.txt", "");
  const std::string script =
      "cd \"$0\" && COMP_WORDS=($2) && COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) && "
      "source \"$1/$COMP_WORDS.bash\" && _$COMP_WORDS && echo ${COMPREPLY[*]}";
  // The shell treats "=" as a separate word.
  for (const auto& [line, offer] : std::vector<std::pair<std::string, std::string>>{
           {"tolquil --lo", "--log-stdout --loglevel"},
           {"tolquil -l n", "NOTICE"},
           {"tolquil -L --loglevel = E", "EMERG ERROR"},
           {"tolquil --config = mine.t", "mine.txt"},
           {"tolquil-uplink --config = mine.t", "mine.txt"},
           {"tolquil-uplink --l", "--loglevel"},
           {"ecusim s", "scenario"},
           {"ecusim m", "mine.json"},
           {"ecusim fleet --", "--help --host --port --spread --change"},
           {"ecusim scenario --v", ""},
           {"ecusim play --p", "--port --password-file --ports"},
           {"ecusim scenario m", ""},
           {"ecusim --host = mine", ""},
           {"ecusim --host /etc/hostn", "/etc/hostname"},
           {"quilctl re", "record replay retire"},
           {"quilctl -p get --host mine", ""},
           {"quilctl --host = /etc/hostn", "/etc/hostname"},
           {"quilctl --host x param s", "set"},
           {"quilctl secstore get --r", "--reveal --raw"},
           {"quilctl status --r", ""},
           {"quilctl --fleet-prefix get --fl", "--fleet --fleet-prefix"},
           {"quilctl --user get --config = list secs", "secstore"},
           {"quilctl secstore set master @ m", "@mine.json @mine.txt"},
           {"quilctl check mine.t", "mine.txt"},
           {"quilctl help param s", "set"},
       }) {
    Process bash({"/bin/bash", "-c", script, dir.path(""), SOURCE_DIR "/deploy/completion", line});
    EXPECT_EQ(bash.wait(), 0);
    EXPECT_EQ(bash.output(), offer + '\n') << line;
  }
}

TEST(DocumentationTest, TheInstalledConfigurationHasEveryKeyAndTheDaemonAcceptsIt) {
  std::string config = contents("deploy/tolquil.conf"), table = contents("docs/interfaces.md");
  table.erase(0, table.find("## Configuration file"));
  table.resize(table.find("\n## "));
  std::set<std::string> documented;
  for (const std::string& cell : all(table, R"(^\| (`[^|]*) \|)")) {
    documented.merge(all(cell, "`([a-z_]+)`"));
  }
  EXPECT_EQ(all(config, "^#([a-z_]+) ="), documented);
  EXPECT_THAT(words(man_page("tolquil.conf.5")), testing::IsSupersetOf(documented));
  config = with_all_keys(config);
  config.replace(config.find("= localhost"), 11, "= /no/such/socket");
  DatagramSocket manager;
  Daemon daemon(config, {}, {"NOTIFY_SOCKET=" + manager.path()});
  EXPECT_TRUE(manager.wait_for(HasSubstr("READY=1")));
}

TEST(DocumentationTest, TheUplinksConfigurationHasEveryKeyAndIsAccepted) {
  const std::string config = contents("deploy/tolquil-uplink.conf");
  EXPECT_THAT(words(man_page("tolquil-uplink.conf.5")), testing::IsSupersetOf(all(config, "^#([a-z_]+) =")));
  const TempDir dir;
  Process check(
      {PROGRAM_DIR "/tolquil-uplink", "--check", "-c", dir.write("uplink.conf", with_all_keys(config))});
  EXPECT_EQ(check.wait(), 0) << check.output();
}

/// The cells of the table below a heading, by row.
std::vector<std::vector<std::string>> table_below(const std::string& heading, const std::string& text) {
  const auto start = text.find('\n' + heading + "\n");
  EXPECT_NE(start, std::string::npos) << heading;
  std::istringstream lines(text.substr(start, text.find("\n#", start + 1) - start));
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("| ")) {
      std::istringstream cells(line.substr(2));
      for (rows.emplace_back(); std::getline(cells, line, '|');) {
        rows.back().push_back(line);
      }
    }
  }
  rows.erase(rows.begin());
  return rows;
}

TEST(DocumentationTest, TheReferenceFilesAreWrittenFromTheTablesOfThisVersion) {
  const TempDir dir;
  EXPECT_EQ(Process({PROGRAM_DIR "/write_reference", dir.path("")}).wait(), 0);
  for (const std::string name : {"asyncapi.yaml", "catalogue.json"}) {
    std::ifstream file(dir.path(name));
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), contents("docs/" + name))
        << "write it again with " PROGRAM_DIR "/write_reference docs";
  }
}

TEST(DocumentationTest, TheAsyncApiFileAndTheInterfacesHaveTheSameTopics) {
  const std::string yaml = contents("docs/asyncapi.yaml"), text = contents("docs/interfaces.md");
  const std::regex channel(R"re(\n  (\w+):\n    address: (system/var/|\S+))re"),
      operation(R"re(action: (\w+)\n    channel: \{\$ref: "#/channels/(\w+)"\}\n.*Traits/(\w+)"\})re");
  std::map<std::string, std::string> addresses;
  for (std::sregex_iterator each(yaml.begin(), yaml.end(), channel), end; each != end; ++each) {
    addresses[(*each)[1]] = (*each)[2];
  }
  std::map<std::string, std::string> quality{
      {"value", " 0, retained "}, {"confirmed", " 1, retained "}, {"event", " 0 "}, {"request", ""}};
  std::set<std::string> described, documented;
  for (std::sregex_iterator each(yaml.begin(), yaml.end(), operation), end; each != end; ++each) {
    described.insert((*each)[1].str() + ' ' + addresses[(*each)[2]] + quality[(*each)[3]]);
  }
  for (const auto& [heading, action] : {std::pair{"### Read", "receive "}, {"### Published", "send "}}) {
    for (const auto& row : table_below(heading, text)) {
      for (const std::string& topic : all(row.front(), "`([^`]+)`")) {
        documented.insert(action + topic + (row.size() == 3 && *action == 's' ? row.back() : ""));
      }
    }
  }
  EXPECT_EQ(described, documented);
}

TEST(DocumentationTest, TheCatalogueHasTheDocumentedVariablesAndFormsThatTheirValuesMatch) {
  const auto expected = nlohmann::json::parse(contents("tools/ecusim/default_scenario.json"))["expect"];
  std::set<std::string> names, documented;
  for (const auto& variable : nlohmann::json::parse(contents("docs/catalogue.json"))) {
    const std::string name = variable["name"];
    names.insert(name);
    const std::string example = variable["example"];
    for (const std::string& value : {example, expected.value(name, example)}) {
      const auto values = variable.value("enumeration", std::vector<std::string>{value});
      EXPECT_THAT(values, Contains(value)) << name;
      EXPECT_TRUE(std::regex_match(value, std::regex(variable.value("pattern", ".+"))))
          << name << ' ' << value;
    }
  }
  for (const auto& row : table_below("### Variables", contents("docs/interfaces.md"))) {
    documented.merge(all(row.front(), "`([a-z0-9]+)`"));
  }
  EXPECT_EQ(names, documented);
}

}  // namespace
}  // namespace tests
