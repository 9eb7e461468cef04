// `Format`: the option `--format` (text for people, JSON for programs), and the printing of a
// result in the chosen form. Relies on the room `json` for the text of documents.
#pragma once

#include "postcard/json/Document.h"

#include <iostream>

namespace CLI {
class App;
}

namespace Postcard::Cli {

class Format {
 public:
   // Adds --format to the command line. `parser` writes into this object, so this object must stay
   // in its place until the command line has been read.
   void declare(CLI::App& parser);

   bool isJson() const { return name_ == "json"; }
   // "text" or "json", as both the command line and a request to an agent write it.
   const std::string& name() const { return name_; }

   // Prints `result` to standard output. Its namespace must have functions `text(result)` and
   // `json(result)`. Write errors are found by `main`, when the command has ended.
   template <class Result>
   void print(const Result& result) const {
      std::cout << (isJson() ? Json::documentText(json(result)) : text(result));
   }

 private:
   std::string name_ = "text";
};

} // namespace Postcard::Cli
