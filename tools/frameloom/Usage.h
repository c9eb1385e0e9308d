#pragma once

#include <CLI/CLI.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace frameloom::tool {

// A malformed value found while a command runs (a colour, a size, a URL): reported like the
// parser's own usage errors, with exit status 2.
class UsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// The name among `names` nearest to `word` (by edit distance, letter case ignored), or "" when
// none is near enough to be a likely typing slip.
std::string nearestName(const std::string& word, const std::vector<std::string>& names);

// The one line a usage error prints (without "frameloom: " and the newline): what was wrong, a
// suggestion where one is near, and the command whose --help to read. `arguments` are the
// command line without the program name; `reason` is the parser's or the command's text.
std::string usageLine(CLI::App& app, const std::vector<std::string>& arguments,
                      const std::string& reason);

} // namespace frameloom::tool
