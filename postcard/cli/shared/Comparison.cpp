#include "postcard/cli/shared/Comparison.h"

#include "Pello/VisibleCharacters.h"
#include "postcard/changes/FileChanges.h"
#include "postcard/cli/shared/Command.h"
#include "postcard/cli/shared/PolicyChoice.h"
#include "postcard/cli/shared/Work.h"
#include "postcard/host/PolicyCompiler.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <ostream>
#include <utility>

namespace Postcard::Cli {

namespace {

// Makes the ACLs of one of the two files.
class Side {
 public:
   // `toggles` are those under which both files are compiled. `name` is that of the file, which
   // must outlive this object.
   Side(std::string name, const Policy::PolicyFile& file, const Policy::ToggleMap& toggles)
      : name_{std::move(name)},
        file_{file},
        compiler_{{.hardware = file.hardware,
                   .collector = {},
                   .featureToggles = toggles,
                   .policies = {},
                   .policiesLocation = {}}} {}

   // The ACL of a policy of this file, null for none. A refusal is written to standard error at
   // once, and added to `refused`.
   Host::PolicyCompiler::Result compile(const Policy::Policy& policy, Policy::Family family,
                                        std::vector<Report::Refusal>& refused) const {
      Host::PolicyCompiler::Result result = compiler_.compile(policy, family);
      if (result.acl == nullptr) {
         refused.push_back(
               Report::refusalOf(policy, family, file_.hardware, name_, result.message));
         messages() << Pello::escaped(name_) << ": " << text(refused.back());
      }
      return result;
   }

 private:
   const std::string name_;
   const Policy::PolicyFile& file_;
   const Host::PolicyCompiler compiler_;
};

// The toggles of `before`, with those on that are on in `after`. A process can set its toggles once
// only. They decide what the loader lets pass and not what rules are made, so that both files can
// be compiled when every toggle is on that is on for one of them.
Policy::ToggleMap togglesOfBoth(const Policy::PolicyFile& before, const Policy::PolicyFile& after) {
   Policy::ToggleMap toggles = before.featureToggles;
   for (const auto& [name, isOn] : after.featureToggles) {
      toggles[name] = toggles[name] || isOn;
   }
   return toggles;
}

// The ACLs of a pair are freed before those of the next one are made.
Changes::FileChanges compare(const Changes::FileNames& names, const Changes::BothFiles& files) {
   const Policy::ToggleMap toggles = togglesOfBoth(files.before, files.after);
   const Side old{names.before, files.before, toggles};
   const Side wanted{names.after, files.after, toggles};
   Changes::FileChanges changes;
   changes.files = names;
   workIs("preparing the analysis of policy file " + Pello::escaped(names.after));
   Analysis::PacketSpace space;
   const auto pairs = Changes::aclPairs(files.before, files.after);
   std::size_t number = 0;
   for (const Changes::AclPair& pair : pairs) {
      workIs(fmt::format("comparing policy {}, {} ({} of {})", quotedWord(pair.policy),
                         familyName(pair.family), ++number, pairs.size()));
      using Result = std::optional<Host::PolicyCompiler::Result>;
      const Result oldAcl = pair.before == nullptr
                                  ? Result{}
                                  : old.compile(*pair.before, pair.family, changes.refusedBefore);
      const Result newAcl = pair.after == nullptr
                                  ? Result{}
                                  : wanted.compile(*pair.after, pair.family, changes.refusedAfter);
      Changes::AclChange change =
            aclChange(space, files, pair,
                      {oldAcl ? oldAcl->acl.get() : nullptr, newAcl ? newAcl->acl.get() : nullptr});
      if (!change.none()) {
         changes.acls.push_back(std::move(change));
      }
   }
   complete(changes, files);
   return changes;
}

} // namespace

int printDifferences(const Policy::File::LoadResult& before, const Policy::File::LoadResult& after,
                     const Format& format) {
   if (!before.policyFile || !after.policyFile) {
      return reportUnusable({before, after}, format);
   }
   try {
      const Changes::FileChanges changes =
            compare({before.fileName, after.fileName}, {*before.policyFile, *after.policyFile});
      format.print(changes);
      return changes.none() ? exitDone : exitRefused;
   } catch (const Host::PluginError& error) {
      messages() << error.what() << '\n';
      return exitEnvironment;
   }
}

} // namespace Postcard::Cli
