// `Format`: the option `--format` (text or a list for people, JSON for programs), and the printing
// of a result in the chosen form. Relies on the room `json` for the text of documents.
#pragma once

#include "postcard/json/Document.h"

#include <iostream>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Postcard::Cli {

class Format {
 public:
   // Adds --format to the command line. `parser` writes into this object, so this object must stay
   // in its place until the command line has been read.
   void declare(CLI::App& parser) { declare(parser, {"text", "json"}); }
   // The same with the third form "list".
   void declareWithList(CLI::App& parser) { declare(parser, {"text", "list", "json"}); }

   bool isJson() const { return name_ == "json"; }
   bool isList() const { return name_ == "list"; }
   // "text", "json" or "list", as both the command line and a request to an agent write it.
   const std::string& name() const { return name_; }

   // Prints `result` to standard output. Its namespace must have functions `text(result)` and
   // `json(result)`. Write errors are found by `main`, when the command has ended.
   template <class Result>
   void print(const Result& result) const {
      std::cout << (isJson() ? Json::documentText(json(result)) : text(result));
   }

 private:
   void declare(CLI::App& parser, const std::vector<std::string>& names);

   std::string name_ = "text";
};

} // namespace Postcard::Cli
