#include "postcard/cli/CommandLine.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/cli/Commands.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/policy/Words.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Postcard::Cli {

namespace {

using Words = std::vector<std::string>;

// "unknown NOUN 'WORD'", with the closest of `words` when one is close.
std::string unknown(std::string_view noun, std::string_view word, const Words& words) {
   const std::vector<std::string_view> views{words.begin(), words.end()};
   return fmt::format("unknown {} {}{}", noun, quotedWord(word),
                      Policy::didYouMean(Policy::closest(word, views)));
}

Words commandNames(const CLI::App& parser) {
   Words names;
   for (const CLI::App* command : parser.get_subcommands({})) {
      names.push_back(command->get_name());
   }
   return names;
}

// All names that begin with "--".
Words optionNames(const CLI::App& command) {
   Words names;
   for (const CLI::Option* option : command.get_options()) {
      for (const std::string& name : option->get_lnames()) {
         names.push_back("--" + name);
      }
   }
   for (const CLI::App* group : command.get_subcommands([](const CLI::App* each) {
           return each->get_name().empty(); // the library's form of a group of options
        })) {
      std::ranges::copy(optionNames(*group), std::back_inserter(names));
   }
   return names;
}

// What to say about words that were not understood; empty when there are none. The library itself
// complains first about what is missing, which may be what such a word was meant to be.
std::string strayText(const CLI::App& parser, const CLI::App& command) {
   const Words stray = parser.remaining(true);
   const auto isOption = [](const std::string& word) {
      return word.size() > 1 && word.front() == '-';
   };
   if (stray.empty()) {
      return {};
   }
   if (&command == &parser && !isOption(stray.front())) {
      return unknown("command", stray.front(), commandNames(parser));
   }
   if (const auto option = std::ranges::find_if(stray, isOption); option != stray.end()) {
      return unknown("option", option->substr(0, option->find('=')), optionNames(command));
   }
   return "unexpected argument " + quotedWord(stray.front());
}

// The command that the user chose, or `parser` when none was recognised.
const CLI::App& chosenCommand(const CLI::App& parser) {
   const auto chosen = parser.get_subcommands();
   return chosen.empty() ? parser : *chosen.front();
}

std::function<int()> declareHelp(CLI::App& parser) {
   auto name = std::make_shared<std::string>();
   parser.add_option("SUBCOMMAND", *name, "the subcommand to explain");
   parser.footer("Prints what --help prints, of SUBCOMMAND or of postcard itself.\n"
                 "Exit status: 0 done, 2 no such subcommand, 3 standard output cannot be written.");
   return [name, &parser]() -> int {
      CLI::App& whole = *parser.get_parent();
      // Otherwise the library would print the help of `help`, which the command line has chosen.
      whole.clear();
      if (name->empty()) {
         std::cout << whole.help();
         return exitDone;
      }
      for (const CLI::App* command : whole.get_subcommands({})) {
         if (command->get_name() == *name) {
            std::cout << command->help(whole.get_name());
            return exitDone;
         }
      }
      std::cerr << "postcard help: " << unknown("command", *name, commandNames(whole)) << '\n';
      return exitUsage;
   };
}

} // namespace

ExitCode reportUsage(CLI::App& parser, const CLI::ParseError& error) {
   if (error.get_exit_code() == 0) {
      parser.exit(error);
      return exitDone;
   }
   const CLI::App& command = chosenCommand(parser);
   const bool whole = &command == &parser;
   const std::string name = whole ? "postcard" : "postcard " + command.get_name();
   const std::string stray = strayText(parser, command);
   std::cerr << fmt::format("{}: {}\nRun '{} --help' for {}.\n", name,
                            stray.empty() ? Pello::escaped(error.what()) : stray, name,
                            whole ? "the commands" : "what it takes");
   return exitUsage;
}

const Command helpCommand{"help", "Explain a subcommand, as its --help does", &declareHelp};

} // namespace Postcard::Cli
