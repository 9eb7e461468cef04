// `FeatureToggle::getToggleState`: who decides, and what is said of files that cannot be used.
#include "FeatureToggle/FeatureToggle.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace FeatureToggle {
namespace {

const std::string file = "Toggles.json";

class FeatureToggleTest : public testing::Test {
 protected:
   void SetUp() override {
      std::string name = testing::TempDir() + "FeatureToggleTest-XXXXXX";
      directory_ = ::mkdtemp(name.data());
      toggleDirectoryIs(directory_);
   }
   void TearDown() override {
      toggleDirectoryIs({});
      toggleOverridesDelAll();
      std::filesystem::remove_all(directory_);
   }

   void write(const std::string& text) const { std::ofstream{directory_ / file} << text; }
   // What is answered, and in `said` what went to standard error.
   U32 ask(const std::string& name, bool defaultState) {
      testing::internal::CaptureStderr();
      const U32 state = getToggleState(name, file, defaultState);
      said = testing::internal::GetCapturedStderr();
      return state;
   }

   std::filesystem::path directory_;
   std::string said;
};

TEST_F(FeatureToggleTest, fileDecidesWhatItDeclares) {
   write(R"({"toggles": {"On": {"default": true}, "Off": {"default": false, "owner": "x"}}})");
   for (const bool defaultState : {false, true}) {
      EXPECT_EQ(ask("On", defaultState), 1U);
      EXPECT_EQ(ask("Off", defaultState), 0U);
      EXPECT_EQ(ask("Unknown", defaultState), defaultState ? 1U : 0U);
      EXPECT_EQ(ask("on", defaultState), defaultState ? 1U : 0U);
      EXPECT_EQ(said, "");
   }
}

TEST_F(FeatureToggleTest, missingFileIsSilent) {
   EXPECT_EQ(ask("On", true), 1U);
   EXPECT_EQ(ask("On", false), 0U);
   EXPECT_EQ(said, "");
   toggleDirectoryIs(directory_ / "missing");
   EXPECT_EQ(ask("On", true), 1U);
   EXPECT_EQ(said, "");
}

TEST_F(FeatureToggleTest, everyCallReadsAnew) {
   write(R"({"toggles": {"On": {"default": true}}})");
   EXPECT_EQ(ask("On", false), 1U);
   write(R"({"toggles": {"On": {"default": false}}})");
   EXPECT_EQ(ask("On", true), 0U);
}

TEST_F(FeatureToggleTest, overridesComeFirst) {
   write(R"({"toggles": {"On": {"default": true}}})");
   toggleOverrideIs("On", false);
   toggleOverrideIs("Unknown", true);
   EXPECT_EQ(ask("On", true), 0U);
   EXPECT_EQ(ask("Unknown", false), 1U);
   toggleOverrideIs("On", true);
   EXPECT_EQ(ask("On", false), 1U);
   toggleOverridesDelAll();
   EXPECT_EQ(ask("On", false), 1U);
   EXPECT_EQ(ask("Unknown", false), 0U);
}

TEST_F(FeatureToggleTest, overrideSparesABrokenFile) {
   write("{");
   toggleOverrideIs("On", true);
   EXPECT_EQ(ask("On", false), 1U);
   EXPECT_EQ(said, "");
}

struct Unusable {
   std::string text;
   std::string reason;
};

TEST_F(FeatureToggleTest, unusableFileGivesTheDefaultAndOneLine) {
   for (const auto& [text, reason] : {
              Unusable{"", "parse error at line 1, column 1"},
              Unusable{"{\"toggles\":\n{", "parse error at line 2, column 2"},
              Unusable{"\xff\xfe", "parse error at line 1, column 1"},
              Unusable{"[]", "the document is not an object"},
              Unusable{"{}", "it has no \"toggles\""},
              Unusable{R"({"toggles": 1})", "\"toggles\" is not an object"},
              Unusable{R"({"toggles": {"On": true}})", "\"On\" is not an object"},
              Unusable{R"({"toggles": {"On": {}}})",
                       "\"On\" has no \"default\" that is true or false"},
              Unusable{R"({"toggles": {"On": {"default": 1}}})",
                       "\"On\" has no \"default\" that is true or false"},
              Unusable{R"({"toggles": {"On": {"default": true}}} x)",
                       "parse error at line 1, column 40"},
        }) {
      write(text);
      for (const bool defaultState : {false, true}) {
         EXPECT_EQ(ask("On", defaultState), defaultState ? 1U : 0U) << text;
         EXPECT_TRUE(said.starts_with((directory_ / file).string() + ": feature toggles ignored: "))
               << said;
         EXPECT_NE(said.find(reason), std::string::npos) << said;
         EXPECT_EQ(said.find('\n'), said.size() - 1) << said;
      }
   }
}

TEST_F(FeatureToggleTest, wrongKindsOfFileAreUnusable) {
   std::filesystem::create_directory(directory_ / file);
   EXPECT_EQ(ask("On", true), 1U);
   EXPECT_NE(said.find("Is a directory"), std::string::npos) << said;
   std::filesystem::remove(directory_ / file);
   write("{}");
   toggleDirectoryIs(directory_ / file);
   EXPECT_EQ(ask("On", true), 1U);
   EXPECT_NE(said.find("Not a directory"), std::string::npos) << said;
}

TEST_F(FeatureToggleTest, whatIsDeclaredIsToldWhateverTheOverridesSay) {
   write(R"({"toggles": {"On": {"default": true}, "Off": {"default": false}}})");
   for (const bool override : {false, true}) {
      toggleOverrideIs("On", override);
      toggleOverrideIs("Off", override);
      toggleOverrideIs("Unknown", override);
      EXPECT_EQ(declaredToggleState("On", file, false), 1U);
      EXPECT_EQ(declaredToggleState("Off", file, true), 0U);
      EXPECT_EQ(declaredToggleState("Unknown", file, true), 1U);
      EXPECT_EQ(declaredToggleState("Unknown", file, false), 0U);
   }
}

// A file in a folder of the build, for the time of a test.
class PlacedFile {
 public:
   PlacedFile(const std::filesystem::path& folder, const std::string& text) : path_{folder / name} {
      std::filesystem::create_directories(folder);
      std::ofstream{path_} << text;
   }
   ~PlacedFile() { std::filesystem::remove(path_); }

   static constexpr const char* name = "FeatureToggleTest.json";

 private:
   std::filesystem::path path_;
};

TEST_F(FeatureToggleTest, subfolderOfTheLibraryIsTheSecondPlace) {
   const std::filesystem::path beside{POSTCARD_LIB_DIR};
   const std::string off = R"({"toggles": {"Second": {"default": false}}})";
   const PlacedFile second{beside / "postcard", off};
   toggleDirectoryIs({});
   EXPECT_EQ(getToggleState("Second", PlacedFile::name, true), 0U);
   {
      const PlacedFile first{beside, R"({"toggles": {"Second": {"default": true}}})"};
      EXPECT_EQ(getToggleState("Second", PlacedFile::name, false), 1U);
   }
   {
      const PlacedFile other{beside, R"({"toggles": {"First": {"default": true}}})"};
      EXPECT_EQ(getToggleState("Second", PlacedFile::name, true), 1U);
   }
   // A folder that was set is the only place.
   std::filesystem::create_directory(directory_ / "postcard");
   const PlacedFile unseen{directory_ / "postcard", off};
   toggleDirectoryIs(directory_);
   EXPECT_EQ(getToggleState("Second", PlacedFile::name, true), 1U);
}

TEST_F(FeatureToggleTest, declaredTogglesStandBesideTheLibrary) {
   toggleDirectoryIs({});
   testing::internal::CaptureStderr();
   EXPECT_EQ(getToggleState("FeaturePostcardTelemetryTcpControl", "PostcardTelemetryCommon.json",
                            false),
             1U);
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
   EXPECT_TRUE(std::filesystem::exists(std::filesystem::path{POSTCARD_LIB_DIR} /
                                       "PostcardTelemetryCommon.json"));
}

} // namespace
} // namespace FeatureToggle
