// Display strings are taken from languages and locales.
#include "KxResbundle.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "ZaroRuntime/DisplayLanguage.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/RuntimeError.h"
#include "support/ProcessTest.h"
#include "support/TemporaryDirectory.h"
#include "support/Thrown.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::ThrowsMessage;
using ZARO::KxResbundle;
using zaroruntime::displayLanguageNames;
using zarotest::readFile;
using zarotest::thrownBy;

constexpr const char* kLocaleVariables[] = {"LC_ALL", "LC_MESSAGES", "LANG"};

// A process of its own for each test: the environment decides, and the log is opened once.
class Resbundle : public testing::Test {
 protected:
  void SetUp() override {
    setenv("ZARO_HOME", m_directory.path().c_str(), 1);
    setenv("ZARO_LOG", log().c_str(), 1);
    unsetenv("ZARO_LOG_LEVEL");
    for (const char* variable : kLocaleVariables) {
      unsetenv(variable);
    }
    settings("");
    language("en", "Delete=Delete\nArchive=Archive\n");
    language("de", "Delete=L\xc3\xb6schen\nArchive=Archivieren\n");
    language("zh", "Delete=\xe5\x88\xa0\xe9\x99\xa4\n");
  }

  void settings(const std::string& languageName) {
    m_directory.write("config/zaro.ini", "[display]\nlanguage=" + languageName + "\n");
  }
  void language(const std::string& name, const std::string& texts) {
    m_directory.write("resources/display." + name + ".ini", "[UiDisplay]\n" + texts + "[Other]\nDelete=other\n");
  }
  std::string file(const std::string& name) const { return m_directory.path("resources/display." + name + ".ini"); }
  std::string log() const { return m_directory.path("log"); }
  std::string logged() const { return std::filesystem::exists(log()) ? readFile(log()) : ""; }

  // A display text as the library asks for it; "none" when there is none.
  static std::string text(const char* key, const char* locale = nullptr, const char* section = "UiDisplay") {
    KxResbundle bundle;
    bundle._init(KxResbundle::GetResourceFileName(), section, locale);
    std::string value = "none";
    bundle.getString(key, value);
    return value;
  }

  const zarotest::TemporaryDirectory m_directory;
};

PROCESS_TEST_F(Resbundle, isEnglishWhenNobodyAsksForALanguage) {
  EXPECT_EQ(text("Delete"), "Delete");
  EXPECT_EQ(logged(), "");
}

PROCESS_TEST_F(Resbundle, speaksTheLanguageOfTheInstallation) {
  settings("de");
  setenv("LANG", "zh_CN.UTF-8", 1);
  EXPECT_EQ(text("Delete"), "L\xc3\xb6schen");
  EXPECT_EQ(logged(), "");
}

PROCESS_TEST_F(Resbundle, speaksTheLanguageOfTheLocaleOtherwise) {
  setenv("LANG", "de_AT.UTF-8", 1);
  EXPECT_EQ(text("Delete"), "L\xc3\xb6schen");
  setenv("LC_MESSAGES", "zh_CN.UTF-8", 1);
  EXPECT_EQ(text("Delete"), "\xe5\x88\xa0\xe9\x99\xa4");
  setenv("LC_ALL", "C.UTF-8", 1);
  EXPECT_EQ(text("Delete"), "Delete");
  setenv("LC_ALL", "", 1);
  EXPECT_EQ(text("Delete"), "\xe5\x88\xa0\xe9\x99\xa4");
  EXPECT_EQ(logged(), "");
}

PROCESS_TEST_F(Resbundle, speaksTheCallersLanguageBeforeAll) {
  settings("zh");
  EXPECT_EQ(text("Delete", "de"), "L\xc3\xb6schen");
  EXPECT_EQ(text("Delete", ""), "\xe5\x88\xa0\xe9\x99\xa4");
}

PROCESS_TEST_F(Resbundle, prefersTheMoreParticularFile) {
  language("de-AT", "Delete=Entfernen\n");
  EXPECT_EQ(text("Delete", "de_AT"), "Entfernen");
  EXPECT_EQ(text("Delete", "de_CH"), "L\xc3\xb6schen");
}

PROCESS_TEST_F(Resbundle, isEnglishInsteadOfALanguageThatIsNotThere) {
  settings("sv");
  EXPECT_EQ(text("Delete"), "Delete");
  EXPECT_THAT(logged(), HasSubstr("warning: KxResbundle: no display strings in the language \"sv\" that the "
                                  "installation asks for; they are shown in \"en\"\n"));
}

PROCESS_TEST_F(Resbundle, isEnglishWithoutAWordForALocaleThatIsNotThere) {
  setenv("LANG", "sv_SE.UTF-8", 1);
  EXPECT_EQ(text("Delete"), "Delete");
  EXPECT_EQ(logged(), "");
}

PROCESS_TEST_F(Resbundle, readsNoFileThatIsNoLanguages) {
  // Where each name would lead if it went into a path as it is.
  const struct {
    const char* name;
    const char* file;
  } cases[] = {
      {"x/y", "display.x/y.ini"}, {"x/", "display.x/.ini"},   {"de/../../x", "display.de/.ini"},
      {"../x", "display..ini"},   {"", "display..ini"},       {".", "display..ini"},
      {"d e", "display.d e.ini"}, {"-de", "display.-de.ini"}, {"de-", "display.de-.ini"},
  };
  m_directory.write("x.ini", "[UiDisplay]\nDelete=outside\n");
  for (const auto& row : cases) {
    m_directory.write(std::string("resources/") + row.file, "[UiDisplay]\nDelete=outside\n");
  }
  for (const auto& row : cases) {
    settings(row.name);
    EXPECT_EQ(text("Delete"), "Delete") << row.name;
    EXPECT_EQ(text("Delete", row.name), "Delete") << row.name;
  }
}

PROCESS_TEST_F(Resbundle, isEnglishInsteadOfAFileThatCannotBeRead) {
  std::filesystem::remove(file("de"));
  std::filesystem::create_directory(file("de"));
  setenv("LANG", "de_DE.UTF-8", 1);
  EXPECT_EQ(text("Delete"), "Delete");
  EXPECT_THAT(logged(), HasSubstr("warning: KxResbundle: " + file("de") + ": not a regular file\n"));
}

PROCESS_TEST_F(Resbundle, throwsWhenEnglishCannotBeRead) {
  std::filesystem::remove(file("en"));
  EXPECT_EQ(thrownBy([] { text("Delete"); }), file("en") + ": cannot open: No such file or directory");
  EXPECT_EQ(zaroruntime::lastFailure(), file("en") + ": cannot open: No such file or directory");
}

PROCESS_TEST_F(Resbundle, showsTheEnglishTextOfAKeyThatTheLanguageLacks) {
  language("de", "Delete=\n");
  EXPECT_EQ(text("Archive", "de"), "Archive");
  EXPECT_EQ(text("Delete", "de"), "Delete") << "an empty text is none";
  EXPECT_THAT(logged(),
              HasSubstr("warning: KxResbundle: " + file("de") +
                        ": section [UiDisplay]: key Archive is missing; the text of " + file("en") + " is shown\n"));
}

PROCESS_TEST_F(Resbundle, hasNoTextThatNoFileHas) {
  EXPECT_EQ(text("Quarantine"), "none");
  EXPECT_EQ(text("Quarantine", "de"), "none");
  EXPECT_EQ(text("delete"), "none") << "keys are case-sensitive";
  EXPECT_EQ(text("Delete", nullptr, "NoSuchSection"), "none");
  EXPECT_EQ(logged(), "");
}

PROCESS_TEST_F(Resbundle, readsTheSectionThatItOpened) {
  EXPECT_EQ(text("Delete", "de", "Other"), "other");
}

PROCESS_TEST_F(Resbundle, goesByTheLocaleWhenTheSettingsCannotBeRead) {
  std::filesystem::remove(m_directory.path("config/zaro.ini"));
  setenv("LANG", "de_DE.UTF-8", 1);
  EXPECT_EQ(text("Delete"), "L\xc3\xb6schen");
  EXPECT_THAT(logged(), HasSubstr("config/zaro.ini: cannot open"));
}

PROCESS_TEST_F(Resbundle, throwsWithoutAnInstallation) {
  unsetenv("ZARO_HOME");
  EXPECT_EQ(thrownBy([] { KxResbundle::GetResourceFileName(); }),
            "ZARO_HOME is not set: it names the installation directory");
}

PROCESS_TEST_F(Resbundle, throwsForNullAndFindsNothingUnopened) {
  KxResbundle bundle;
  std::string value = "untouched";
  EXPECT_FALSE(bundle.getString("Delete", value));
  EXPECT_THAT(thrownBy([&] { bundle._init(nullptr, "UiDisplay", nullptr); }), HasSubstr("must be named"));
  EXPECT_THAT(thrownBy([&] { bundle._init("x", nullptr, nullptr); }), HasSubstr("must be named"));
  bundle._init(KxResbundle::GetResourceFileName(), "UiDisplay", nullptr);
  EXPECT_FALSE(bundle.getString(nullptr, value));
  EXPECT_FALSE(bundle.getString("", value));
  EXPECT_EQ(value, "untouched");
}

PROCESS_TEST_F(Resbundle, listsTheLanguagesThatHaveAFile) {
  m_directory.write("resources/display.ini", "");
  m_directory.write("resources/display..ini", "");
  m_directory.write("resources/display.de.ini.bak", "");
  m_directory.write("resources/display.bad name.ini", "");
  m_directory.write("resources/other.fr.ini", "");
  const zaroruntime::Installation installation(m_directory.path());
  EXPECT_THAT(zaroruntime::installedDisplayLanguages(installation), ElementsAre("de", "en", "zh"));
  EXPECT_THAT(zaroruntime::installedDisplayLanguages(zaroruntime::Installation(m_directory.path("nowhere"))), IsEmpty());
  const std::string endless = m_directory.path("endless");
  std::filesystem::create_directory(endless);
  std::filesystem::create_symlink("resources", endless + "/resources");
  EXPECT_THAT([&] { zaroruntime::installedDisplayLanguages(zaroruntime::Installation(endless)); },
              ThrowsMessage<zaroruntime::RuntimeError>(StartsWith(endless + "/resources: cannot be listed: ")));
}

TEST(DisplayLanguageNames, areTakenFromLanguagesAndLocales) {
  EXPECT_THAT(displayLanguageNames("de"), ElementsAre("de"));
  EXPECT_THAT(displayLanguageNames("de_AT.UTF-8@euro"), ElementsAre("de-AT", "de"));
  EXPECT_THAT(displayLanguageNames("zh-Hans-CN"), ElementsAre("zh-Hans-CN", "zh-Hans", "zh"));
  EXPECT_THAT(displayLanguageNames("sr@latin"), ElementsAre("sr"));
  for (const char* plain : {"C", "POSIX", "C.UTF-8"}) {
    EXPECT_THAT(displayLanguageNames(plain), ElementsAre("en")) << plain;
  }
  for (const char* none : {"", ".UTF-8", "../x", "d e", "de/AT", "_de", "de_"}) {
    EXPECT_THAT(displayLanguageNames(none), IsEmpty()) << none;
  }
  EXPECT_THAT(displayLanguageNames(std::string(65, 'a')), IsEmpty());
}

}  // namespace
