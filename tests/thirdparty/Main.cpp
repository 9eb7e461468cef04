#include "Check.h"

#include <exception>

namespace {

// An exception that nobody expected is one failed check, not the end of the other subjects.
void run(const char* name, thirdparty::Subject::Run subject) {
   try {
      subject();
   } catch (const std::exception& error) {
      thirdparty::Tally::instance().note(false, name, 0, error.what());
   }
}

} // namespace

int main() {
   for (const auto& [name, subject] : thirdparty::Subject::all()) {
      run(name, subject);
   }
   return thirdparty::Tally::instance().report();
}
