// Ini files are read as they stand, and written without loss.
#include "ZaroRuntime/IniFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "ConfigFileOnDisk.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/RuntimeError.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using ZARO::ConfigFileOnDisk;
using zaroruntime::IniFile;
using zaroruntime::RuntimeError;
using zarotest::readFile;
using zarotest::TemporaryDirectory;

// The reason for which `operation` is refused.
template <typename Operation>
std::string refusal(Operation operation) {
  try {
    operation();
  } catch (const RuntimeError& failure) {
    return failure.what();
  }
  return "not refused";
}

TEST(IniFile, valuesAreReadAsTheyStand) {
  const TemporaryDirectory directory;
  const IniFile ini(directory.write("a.ini",
                                    "; comment\n[one]\n  key = a b ; no comment # either \nempty=\nPassword=p;a#s\"s%\n"
                                    "[two]\nkey=ä漢\n"));
  EXPECT_EQ(ini.get("one", "key"), "a b ; no comment # either");
  EXPECT_EQ(ini.get("one", "empty"), "");
  EXPECT_EQ(ini.get("one", "Password"), "p;a#s\"s%");
  EXPECT_EQ(ini.get("two", "key"), "ä漢");
  EXPECT_EQ(ini.get("one", "KEY"), std::nullopt);
  EXPECT_EQ(ini.get("three", "key"), std::nullopt);
  EXPECT_TRUE(ini.hasSection("two"));
  EXPECT_FALSE(ini.hasSection("three"));
  EXPECT_THAT(ini.items("one"),
              ElementsAre(Pair("key", "a b ; no comment # either"), Pair("empty", ""), Pair("Password", "p;a#s\"s%")));
  EXPECT_THAT(ini.items("three"), testing::IsEmpty());
}

TEST(IniFile, writingKeepsCommentsAndOrder) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("a.ini", "; head\n\n[b]\n; about x\nx=1\ny=2\n\n[a]\nz=3\n");
  IniFile ini(path);
  ini.set("b", "x", "new");
  ini.set("c", "k", "v");
  ini.write(path, 0640);
  const std::string text = readFile(path);
  EXPECT_LT(text.find("; head"), text.find("[b]"));
  EXPECT_LT(text.find("; about x\nx=new\ny=2"), text.find("[a]\nz=3"));
  EXPECT_LT(text.find("[a]"), text.find("[c]\nk=v"));
  struct stat status = {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST(IniFile, writingKeepsWhatTheParserDoesNot) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("a.ini", "[a]\r\nx = 1\r\n\r\n[b]\r\n[a]\r\n; twice\r\ny=2\r\n; end");
  IniFile ini(path);
  ini.set("a", "x", "new");
  EXPECT_EQ(ini.text(), "[a]\r\nx = new\r\n\r\n[b]\r\n[a]\r\n; twice\r\ny=2\r\n; end");
  ini.write(path, 0644);
  EXPECT_EQ(readFile(path), ini.text());
  EXPECT_EQ(IniFile(path).get("a", "x"), "new");
}

TEST(IniFile, sectionsComeInTheOrderOfTheFile) {
  const IniFile ini = IniFile::parse("k=1\n[z]\n[a]\nk=2\n[z]\n[m]\n", "text");
  EXPECT_THAT(ini.sections(), ElementsAre("", "z", "a", "m"));
  EXPECT_EQ(ini.get("", "k"), "1");
}

TEST(IniFile, malformedLinesAreRefusedOnRequest) {
  EXPECT_EQ(refusal([] { IniFile::parse("[s]\nk=v\njunk\n", "some.ini", IniFile::Malformed::Refused); }),
            "some.ini: line 3 is neither a section, a key with a value nor a comment");
  EXPECT_EQ(refusal([] { IniFile::parse(std::string("k=\0", 3), "some.ini", IniFile::Malformed::Refused); }),
            "some.ini: not an ini file (it holds NUL bytes)");
  EXPECT_EQ(IniFile::parse("[s]\nk=v\n; c\n", "some.ini", IniFile::Malformed::Refused).get("s", "k"), "v");
}

TEST(IniFile, namesThatTheFormatCannotHoldAreRefused) {
  IniFile ini = IniFile::parse("[s]\nk=v\n", "text");
  for (const char* section : {"", "a]b", "a\nb", " a", "a\t"}) {
    EXPECT_THAT(refusal([&] { ini.set(section, "k", "v"); }), HasSubstr(std::string("section ") + section + ": "));
  }
  for (const char* key : {"", "a=b", "[a", ";a", "#a", "a\rb", " a", "a "}) {
    EXPECT_THAT(refusal([&] { ini.set("s", key, "v"); }), HasSubstr(std::string("key ") + key + ": "));
  }
  EXPECT_EQ(ini.text(), "[s]\nk=v\n");
  ini.set("a b [c", "d e ; # ] [", "= f");
  EXPECT_EQ(ini.get("a b [c", "d e ; # ] ["), "= f");
}

TEST(IniFile, valuesThatTheFormatCannotHoldAreRefused) {
  const TemporaryDirectory directory;
  IniFile ini(directory.write("a.ini", "[s]\n"));
  for (const std::string& value : {std::string("a\nb"), std::string("a\r"), std::string("a\0b", 3)}) {
    EXPECT_THAT(refusal([&] { ini.set("s", "k", value); }), HasSubstr("k: line ends and NUL"));
  }
  EXPECT_THAT(refusal([&] { ini.set("s", "k", " a"); }), HasSubstr("k: blanks"));
  EXPECT_THAT(refusal([&] { ini.set("s", "k", "a\t"); }), HasSubstr("k: blanks"));
}

TEST(IniFile, unreadableFilesAreNamed) {
  const TemporaryDirectory directory;
  const std::string missing = directory.path("missing.ini");
  EXPECT_EQ(refusal([&] { IniFile ini(missing); }), missing + ": cannot open: No such file or directory");
  EXPECT_THAT(refusal([&] { IniFile ini(directory.path()); }), HasSubstr("not a regular file"));
  const std::string binary = directory.write("binary.ini", std::string("[s]\nk=\0v\n", 9));
  EXPECT_THAT(refusal([&] { IniFile ini(binary); }), HasSubstr("binary.ini: not an ini file"));
  const std::string huge = directory.write("huge.ini", std::string(17 * 1024 * 1024, 'x'));
  EXPECT_THAT(refusal([&] { IniFile ini(huge); }), HasSubstr("larger than"));
}

TEST(IniFile, failedWriteLeavesTheOldFile) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("a.ini", "[s]\nk=old\n");
  std::filesystem::create_directory(path + ".new");
  IniFile ini(path);
  ini.set("s", "k", "new");
  EXPECT_THAT(refusal([&] { ini.write(path, 0600); }), HasSubstr("cannot create"));
  EXPECT_EQ(readFile(path), "[s]\nk=old\n");
}

TEST(IniFile, malformedLinesDoNotHideTheOthers) {
  const TemporaryDirectory directory;
  const IniFile ini(directory.write("a.ini", "no section\n[open\n=no key\n[s]\nk=v\njunk\n\xff\xfe=1\n"));
  EXPECT_EQ(ini.get("s", "k"), "v");
}

TEST(ConfigFileOnDisk, valuesAreRead) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("a.ini", "[s]\nk=v\nempty=\n");
  const ConfigFileOnDisk file(path.c_str());
  EXPECT_TRUE(file.isOpen());
  EXPECT_EQ(file.getPath(), path);
  std::string value = "before";
  EXPECT_FALSE(file.getValue("s", "other", value));
  EXPECT_FALSE(file.getValue("other", "k", value));
  EXPECT_FALSE(file.getValue(nullptr, "k", value));
  EXPECT_FALSE(file.getValue("s", nullptr, value));
  EXPECT_EQ(value, "before");
  EXPECT_TRUE(file.getValue("s", "k", value));
  EXPECT_EQ(value, "v");
  EXPECT_TRUE(file.getValue("s", "empty", value));
  EXPECT_EQ(value, "");
}

TEST(ConfigFileOnDisk, unreadableFileIsNotOpenAndLogged) {
  const TemporaryDirectory directory;
  const std::string path = directory.path("missing.ini");
  testing::internal::CaptureStderr();
  const ConfigFileOnDisk file(path.c_str());
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("missing.ini: cannot open: No such file"));
  EXPECT_FALSE(file.isOpen());
  EXPECT_EQ(file.getPath(), path);
  std::string value;
  EXPECT_FALSE(file.getValue("s", "k", value));
}

TEST(Installation, databaseSettingsNameWhatIsWrong) {
  const TemporaryDirectory directory;
  const zaroruntime::Installation here(directory.path());
  const auto read = [&] { zaroruntime::readDatabaseSettings(here); };
  EXPECT_THAT(refusal(read), HasSubstr("config/database.ini: cannot open"));
  directory.write("config/database.ini", "[Other]\n");
  EXPECT_THAT(refusal(read), HasSubstr("config/database.ini: section [Database_Settings] is missing"));
  directory.write("config/database.ini", "[Database_Settings]\nDataSourceName=a\nUserId=b\n");
  EXPECT_THAT(refusal(read), HasSubstr("section [Database_Settings]: key Database is missing"));
  directory.write("config/database.ini", "[Database_Settings]\nDataSourceName=a\nUserId=b\nDatabase=c\n");
  EXPECT_EQ(zaroruntime::readDatabaseSettings(here).password, "");
}

}  // namespace
