#pragma once

#include <string>
#include <utility>
#include <vector>

#include <CLI/App.hpp>
#include <CLI/Validators.hpp>

#include "terminal.h"
#include "text.h"

namespace hyl::v2::tool {

/// The whole tool; returns its exit code.
int RunTool(int argc, char** argv) noexcept;

/// What a command works with. Complete when the command line has been read.
struct Context {
  Output& out;
  Format format = Format::kText;
  bool verbose = false;  ///< the library's log goes to standard error
};

// Each adds its command to `app`. The command runs when the command line that names it has been
// read.
void AddListCommand(CLI::App& app, const Context& context);
void AddStreamCommand(CLI::App& app, const Context& context);
void AddFlickerCommand(CLI::App& app, const Context& context);
void AddGetCommand(CLI::App& app, const Context& context);
void AddSetCommand(CLI::App& app, const Context& context);

/// What the last of `words`, those of a command line behind the program's name, can be completed
/// to. Asks the framework for the names of sensors.
std::vector<std::string> Completions(const CLI::App& app, const std::vector<std::string>& words);

/// Throws Failure where the user wants CSV, for a command that has none.
void RefuseCsv(const Context& context);

/// Accepts a number from `least` to `most`.
CLI::Validator NumberWithin(double least, double most);

/// Adds an option that takes one of the words; `take` gets the value that the word stands for.
template <typename T, typename Take>
CLI::Option* AddChoice(CLI::App& app, const char* name,
                       const std::vector<std::pair<std::string, T>>& choices, Take take,
                       const char* help) {
  std::vector<std::string> words;
  for (const auto& choice : choices) {
    words.push_back(choice.first);
  }
  const auto choose = [choices, take](const std::string& word) {
    for (const auto& choice : choices) {
      if (choice.first == word) {
        take(choice.second);
      }
    }
  };
  return app.add_option_function<std::string>(name, choose, help)
      ->type_name(CLI::detail::join(words, "|"))
      ->check(CLI::IsMember(words));
}

}  // namespace hyl::v2::tool
