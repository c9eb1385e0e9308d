#include "Usage.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace frameloom::tool {

namespace {

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

std::vector<std::string> commandNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(sub->get_name());
  }
  return names;
}

std::vector<std::string> optionNames(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* level = &command; level != nullptr; level = level->get_parent()) {
    for (const CLI::Option* option : level->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        names.push_back("--" + name);
      }
      for (const std::string& name : option->get_snames()) {
        names.push_back("-" + name);
      }
    }
  }
  return names;
}

// A one-letter option stands for the long option that starts with its letter (-V, --version);
// a longer one for the long option nearest to it.
std::string nearestOption(const std::string& word, const std::vector<std::string>& names) {
  if (word.size() == 2 && word[0] == '-' && word[1] != '-') {
    std::vector<std::string> starting;
    for (const std::string& name : names) {
      if (name.size() > 3 && name.starts_with("--") &&
          std::tolower(static_cast<unsigned char>(name[2])) ==
              std::tolower(static_cast<unsigned char>(word[1]))) {
        starting.push_back(name);
      }
    }
    return starting.size() == 1 ? starting.front() : "";
  }
  return nearestName(word, names);
}

std::string fullName(const CLI::App& command) {
  std::string name = command.get_name();
  for (const CLI::App* level = command.get_parent(); level != nullptr;
       level = level->get_parent()) {
    name = level->get_name() + " " + name;
  }
  return name;
}

std::string suggestion(const std::string& nearest) {
  return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

// The first word that does not follow "The following argument(s) was/were not expected: ".
std::string firstUnexpected(const std::string& reason) {
  const auto colon = reason.find("not expected: ");
  if (colon == std::string::npos) {
    return "";
  }
  const std::string rest = reason.substr(colon + 14);
  return rest.substr(0, rest.find(' '));
}

} // namespace

std::string nearestName(const std::string& word, const std::vector<std::string>& names) {
  const std::string wanted = lowered(word);
  std::string best;
  std::size_t bestDistance = std::max<std::size_t>(2, wanted.size() / 3) + 1;
  for (const std::string& name : names) {
    const std::size_t distance = editDistance(wanted, lowered(name));
    if (distance < bestDistance) {
      bestDistance = distance;
      best = name;
    }
  }
  return best;
}

std::string usageLine(CLI::App& app, const std::vector<std::string>& arguments,
                      const std::string& reason) {
  // Follow the words that name commands as far as they go.
  CLI::App* command = &app;
  std::string unknown;
  std::string unknownOption;
  for (const std::string& word : arguments) {
    const std::vector<std::string> names = commandNames(*command);
    // Below a command that takes no subcommands, a word with a single dash may be a value.
    if (names.empty() && !word.starts_with("--")) {
      continue;
    }
    if (word.starts_with("-")) {
      const std::vector<std::string> options = optionNames(*command);
      if (unknownOption.empty() && word != "-" &&
          std::find(options.begin(), options.end(), word.substr(0, word.find('='))) ==
              options.end()) {
        unknownOption = word;
      }
      continue;
    }
    if (names.empty()) {
      continue;
    }
    if (std::find(names.begin(), names.end(), word) == names.end()) {
      unknown = word;
      break;
    }
    command = command->get_subcommand(word);
  }
  const std::string see = " (see '" + fullName(*command) + " --help')";
  const std::string prefix =
      command == &app ? "" : fullName(*command).substr(app.get_name().size() + 1) + " ";
  if (!unknown.empty()) {
    // A command with one subcommand can only have meant that one.
    const std::vector<std::string> names = commandNames(*command);
    const std::string nearest = names.size() == 1 ? names.front() : nearestName(unknown, names);
    return "unknown command '" + prefix + unknown + "'" +
           suggestion(nearest.empty() ? "" : prefix + nearest) + see;
  }
  const std::string unexpected = unknownOption.empty() ? firstUnexpected(reason) : unknownOption;
  if (unexpected.starts_with("-")) {
    return "unknown option '" + unexpected + "'" +
           suggestion(nearestOption(unexpected, optionNames(*command))) + see;
  }
  if (!unexpected.empty()) {
    return "unexpected argument '" + unexpected + "'" + see;
  }
  if (!commandNames(*command).empty() && reason.find("subcommand") != std::string::npos) {
    return "a command is required" + see;
  }
  return reason + see;
}

} // namespace frameloom::tool
