// `Format`: the option `--format`, text for people or JSON for programs, and how a result is
// printed in either. Relies on the room `json` for the text of documents.
#pragma once

#include "postcard/json/Document.h"

#include <iostream>

namespace CLI {
class App;
}

namespace Postcard::Cli {

class Format {
 public:
   // Adds --format to the command line. This object must outlive `parser`.
   void declare(CLI::App& parser);

   bool isJson() const { return name_ == "json"; }
   // As the command line, and the request to an agent, write it: "text" or "json".
   const std::string& name() const { return name_; }

   // Prints `result`, a value that has functions `text` and `json` beside it, to standard output.
   template <class Result>
   void print(const Result& result) const {
      std::cout << (isJson() ? Json::documentText(json(result)) : text(result));
   }

 private:
   std::string name_ = "text";
};

} // namespace Postcard::Cli
