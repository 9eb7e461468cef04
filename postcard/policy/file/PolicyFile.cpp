#include "postcard/policy/file/PolicyFile.h"

#include "postcard/policy/file/Document.h"
#include "postcard/policy/file/Findings.h"
#include "postcard/policy/file/Reader.h"
#include "postcard/policy/file/Text.h"

#include <fmt/format.h>

#include <utility>

namespace Postcard::Policy::File {

namespace {

// Nothing when a step fails after which the next one has nothing to read.
std::optional<PolicyFile> read(std::string_view text, const LoadOptions& options,
                               Findings& findings) {
   // A text in memory has no file whose size was checked.
   if (text.size() > options.maxBytes) {
      findings.add({}, FindingCode::tooLarge,
                   fmt::format("the text is longer than {} bytes", options.maxBytes));
      return std::nullopt;
   }
   if (auto finding = checkText(text)) {
      findings.add(finding->location, finding->code, std::move(finding->message));
      return std::nullopt;
   }
   const Document document{text, options.maxNodes, findings};
   if (document.root() == nullptr) {
      return std::nullopt;
   }
   return readPolicyFile(*document.root(), options, findings);
}

} // namespace

std::string format(std::string_view fileName, const Finding& finding) {
   if (finding.location.line == 0) {
      return fmt::format("{}: {}", fileName, finding.message);
   }
   return fmt::format("{}:{}:{}: {}", fileName, finding.location.line, finding.location.column,
                      finding.message);
}

std::string formatFindings(const LoadResult& result) {
   std::string text;
   for (const Finding& finding : result.findings) {
      text += format(result.fileName, finding) + "\n";
   }
   if (result.omittedFindings > 0) {
      text += fmt::format("{}: … and {} more\n", result.fileName, result.omittedFindings);
   }
   return text;
}

LoadResult parsePolicyText(std::string_view text, const std::string& fileName,
                           const LoadOptions& options) {
   Findings findings{options.maxFindings};
   LoadResult result;
   result.fileName = fileName;
   auto policyFile = read(text, options, findings);
   if (findings.empty()) { // else the values lack the parts that are wrong
      result.policyFile = std::move(policyFile);
   }
   const std::size_t count = findings.count();
   result.findings = findings.take();
   result.omittedFindings = count - result.findings.size();
   return result;
}

LoadResult loadPolicyFile(const std::string& path, const LoadOptions& options) {
   const std::string fileName = path == standardInput ? "<stdin>" : path;
   auto content = readPolicyText(path, options.maxBytes);
   if (auto* finding = std::get_if<Finding>(&content)) {
      LoadResult result;
      result.fileName = fileName;
      result.findings.push_back(std::move(*finding));
      return result;
   }
   auto& text = std::get<std::string>(content);
   LoadResult result = parsePolicyText(text, fileName, options);
   result.text = std::move(text);
   return result;
}

} // namespace Postcard::Policy::File
