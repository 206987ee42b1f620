// The one form in which lists are asked for an address, however mail spells it.
#include "mail/MailAddress.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "KxWildcardEmail.h"

namespace {

struct Spelling {
  const char* label;
  std::string spelled;
  std::string form;
};

const Spelling kAddresses[] = {
    {"plain", "user@example.test", "user@example.test"},
    {"letter case", "User@EXAMPLE.Test", "user@example.test"},
    {"blanks around", " user@example.test\t\r", "user@example.test"},
    {"brackets", "<user@example.test>", "user@example.test"},
    {"blanks in brackets", "< user@example.test >", "user@example.test"},
    {"source route", "<@one.test,@two.test:user@example.test>", "user@example.test"},
    {"null sender", "<>", "<>"},
    {"null sender with a blank", "< >", "<>"},
    {"nothing", "", ""},
    {"blanks alone", " \t", ""},
    {"one bracket", "<user@example.test", "\"<user\"@example.test"},
    {"dot of the root", "user@example.test.", "user@example.test"},
    {"dots at the end", "user@example.test..", "user@example.test"},
    {"root alone", "user@.", "user@."},
    {"no domain", "user@", "user@"},
    {"no local part", "@example.test", "\"\"@example.test"},
    {"empty quotes", "\"\"@example.test", "\"\"@example.test"},
    {"no at", "PostMaster", "postmaster"},
    {"quotes that are not needed", "\"user.name\"@example.test", "user.name@example.test"},
    {"quotes around a part", "\"user\".name@example.test", "user.name@example.test"},
    {"backslash that is not needed", "us\\er@example.test", "user@example.test"},
    {"backslash in quotes", "\"us\\er\"@example.test", "user@example.test"},
    {"blank in quotes", "\"a b\"@example.test", "\"a b\"@example.test"},
    {"blank behind a backslash", "a\\ b@example.test", "\"a b\"@example.test"},
    {"quote in quotes", "\"a\\\"b\"@example.test", "\"a\\\"b\"@example.test"},
    {"backslash that is meant", "\"a\\\\b\"@example.test", "\"a\\\\b\"@example.test"},
    {"backslash at the end", "user\\", "\"user\\\\\""},
    {"dots in a row", "a..b@example.test", "\"a..b\"@example.test"},
    {"dot in front", ".a@example.test", "\".a\"@example.test"},
    {"dot behind", "a.@example.test", "\"a.\"@example.test"},
    {"at in quotes", "\"a@b\"@c.test", "\"a%40b\"@c.test"},
    {"at behind a backslash", "a\\@b@c.test", "\"a%40b\"@c.test"},
    {"two ats", "a@b@c.test", "\"a%40b\"@c.test"},
    {"percent in quotes", "\"a%40b c\"@d.test", "\"a%2540b c\"@d.test"},
    {"percent", "a%40b@c.test", "a%40b@c.test"},
    {"at in quotes without a domain", "\"a@b\"", "\"a%40b\""},
    {"umlaut",
     "user@b\xc3\xbc"
     "cher.test",
     "user@xn--bcher-kva.test"},
    {"capital umlaut",
     "user@B\xc3\x9c"
     "CHER.test",
     "user@xn--bcher-kva.test"},
    {"decomposed umlaut",
     "user@bu\xcc\x88"
     "cher.test",
     "user@xn--bcher-kva.test"},
    {"sharp s",
     "user@stra\xc3\x9f"
     "e.test",
     "user@xn--strae-oqa.test"},
    {"A-label in capitals", "user@XN--BCHER-KVA.test", "user@xn--bcher-kva.test"},
    {"ideographic full stop", "user@\xe4\xbe\x8b\xe3\x80\x82test", "user@xn--fsq.test"},
    {"fullwidth letters", "user@\xef\xbd\x85xample.test", "user@example.test"},
    {"local part beyond ASCII", "b\xc3\xbc@example.test", "b\xc3\xbc@example.test"},
    {"no UTF-8", "user@\xff.Test", "user@\xff.test"},
    {"NUL in a label", std::string("user@\xc3\xbc\0.test", 13), std::string("user@\xc3\xbc\0.test", 13)},
    {"address literal", "user@[IPv6:2001:DB8::1]", "user@[ipv6:2001:db8::1]"},
    {"underscore", "user@_dmarc.example.test", "user@_dmarc.example.test"},
};

TEST(MailAddress, hasOneFormHoweverItIsSpelled) {
  for (const Spelling& test : kAddresses) {
    EXPECT_EQ(normalAddress(test.spelled), test.form) << test.label;
  }
}

struct Extension {
  const char* label;
  const char* spelled;
  const char* delimiters;
  const char* form;
};

const Extension kExtensions[] = {
    {"none wanted", "user+news@example.test", "", "user+news@example.test"},
    {"none there", "user@example.test", "+", "user@example.test"},
    {"one", "user+news@example.test", "+", "user@example.test"},
    {"the first of two", "user+news+more@example.test", "+", "user@example.test"},
    {"the first delimiter of several", "user-a+b@example.test", "+-", "user@example.test"},
    {"nothing in front", "+news@example.test", "+", "+news@example.test"},
    {"nothing behind", "user+@example.test", "+", "user@example.test"},
    {"in quotes", "\"a b+c@d\"@example.test", "+", "\"a b\"@example.test"},
    {"in the domain", "user@a-b.test", "-", "user@a-b.test"},
    {"no domain", "user+news", "+", "user+news"},
    {"the server's own", "Mailer-Daemon@example.test", "-", "mailer-daemon@example.test"},
    {"double bounce", "double-bounce@example.test", "+-", "double-bounce@example.test"},
    {"owner of a list", "owner-list@example.test", "-", "owner-list@example.test"},
    {"requests to a list", "list-request@example.test", "-", "list-request@example.test"},
    {"owner with a plus", "owner-list+x@example.test", "+", "owner-list@example.test"},
};

TEST(MailAddress, extensionOfTheLocalPartIsLeftOut) {
  for (const Extension& test : kExtensions) {
    EXPECT_EQ(normalAddress(test.spelled, test.delimiters), test.form) << test.label;
  }
}

const Spelling kPatterns[] = {
    {"plain", "user@example.test", "user@example.test"},
    {"any local part", "*@Example.test", "*@example.test"},
    {"any label",
     "*@*.b\xc3\xbc"
     "cher.test",
     "*@*.xn--bcher-kva.test"},
    {"everything", "*", "*"},
    {"null sender", "<>", "<>"},
    {"no at",
     "B\xc3\xbc"
     "cher",
     "B\xc3\xbc"
     "cher"},
    {"dot of the root", "*@example.test.", "*@example.test"},
    {"star in quotes", "\"*\"@example.test", "\"*\"@example.test"},
    {"star behind a backslash", "\\*@example.test", "\"*\"@example.test"},
    {"star among others", "us*@example.test", "us*@example.test"},
    {"at in quotes", "\"a@b\"@c.test", "\"a%40b\"@c.test"},
    {"form of an at", "\"a%40b\"@c.test", "\"a%40b\"@c.test"},
    {"form of a percent", "\"a %2540\"@c.test", "\"a %2540\"@c.test"},
    {"percent without quotes", "a%40b@c.test", "a%40b@c.test"},
};

// --- Tags of mail servers ---

struct Tagged {
  const char* label;
  bool stripsBatv;
  bool stripsSrs;
  std::string spelled;
  std::string form;
};

const Tagged kTagged[] = {
    {"BATV", true, false, "prvs=1234abcdef=User@A.test", "user@a.test"},
    {"BATV that stays", false, true, "prvs=1234abcdef=user@a.test", "prvs=1234abcdef=user@a.test"},
    {"BATV of a quoted local part", true, false, "\"prvs=1234=a@b\"@c.test", "\"a%40b\"@c.test"},
    {"BATV without a local part", true, false, "prvs=1234abcdef=@a.test", "prvs=1234abcdef=@a.test"},
    {"BATV without a tag", true, false, "prvs==user@a.test", "prvs==user@a.test"},
    {"SRS0", false, true, "SRS0=ab=XY=A.test=User@relay.test", "user@a.test"},
    {"SRS0 that stays", true, false, "SRS0=ab=XY=a.test=user@relay.test", "srs0=ab=xy=a.test=user@relay.test"},
    {"SRS0 with a hyphen", false, true, "srs0-ab=XY=a.test=user@relay.test", "user@a.test"},
    {"SRS0 with an equals sign in the local part", false, true, "SRS0=ab=XY=a.test=a=b@relay.test", "a=b@a.test"},
    {"SRS0 of an internationalised domain", false, true,
     "SRS0=ab=XY=b\xc3\xbc"
     "cher.test=a@relay.test",
     "a@xn--bcher-kva.test"},
    {"SRS0 with an at in its domain", false, true, "\"SRS0=ab=XY=a@b.test=u\"@c.test",
     "\"srs0=ab=xy=a%40b.test=u\"@c.test"},
    {"SRS0 that is cut", false, true, "SRS0=ab=XY=a.test@relay.test", "srs0=ab=xy=a.test@relay.test"},
    {"SRS1", false, true, "SRS1=cd=one.test==ab=XY=a.test=user@two.test", "user@a.test"},
    {"SRS1 that is cut", false, true, "SRS1=cd=one.test=ab@two.test", "srs1=cd=one.test=ab@two.test"},
    {"one in the other", true, true, "prvs=12=SRS0=ab=XY=a.test=prvs=34=user@relay.test", "user@a.test"},
};

TEST(MailAddress, losesTheTagsThatTheFormNames) {
  for (const Tagged& test : kTagged) {
    EXPECT_EQ(normalAddress(test.spelled, AddressForm{"", test.stripsBatv, test.stripsSrs}), test.form) << test.label;
  }
}

TEST(MailAddress, isOneMailboxThatMailCanBeSentTo) {
  for (const char* address : {"a@b.test", "a.b+c%d!e@b-c.d_e.test", "\"a b\"@c.test", "\"a\\\"@b,c\"@d.test",
                              "a@localhost", "a@[192.0.2.1]", "a@[IPv6:2001:db8::1]", "\u00FC@b\u00FCcher.test"}) {
    EXPECT_TRUE(isMailbox(address)) << address;
  }
  for (const char* address : {"",
                              "<>",
                              "a",
                              "a@",
                              "@example.com",
                              "a,b@example.com",
                              "x@example.com,y@example.com",
                              "a@example..com",
                              "a@.example.com",
                              "a@example.com.",
                              "a(@example.com",
                              "\"a@example.com",
                              "a\"b\"@example.com",
                              "\"a\"b@example.com",
                              "\"a\"b\"@example.com",
                              "\"a\\\"@example.com",
                              "a@b@example.com",
                              "a b@example.com",
                              "a@exam ple.com",
                              ".a@example.com",
                              "a.@example.com",
                              "a..b@example.com",
                              "<a@example.com>",
                              "a@[192.0.2.1",
                              "a@[]",
                              "a@[1]x",
                              "\"a\rb\"@example.com",
                              "@relay.test:a@example.com",
                              "\"\"@example.com"}) {
    EXPECT_FALSE(isMailbox(address)) << address;
  }
}

TEST(MailPattern, hasTheFormOfTheAddressesThatItNames) {
  for (const Spelling& test : kPatterns) {
    EXPECT_EQ(normalPattern(test.spelled), test.form) << test.label;
    EXPECT_EQ(normalPattern(test.form), test.form) << test.label;
  }
}

// An "@" in the local part would move the domain to where no rule for it applies.
TEST(MailAddress, noSpellingEscapesTheRuleForItsDomain) {
  std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewTree());
  ASSERT_TRUE(tree->addAddressPattern("*@c.test", 2, nullptr, nullptr));
  for (const char* spelled : {"a@c.test", "\"a@b\"@c.test", "a@b@c.test", "a\\@b.test@c.test", "<@b.test:a@C.Test.>",
                              "\"a\\\"@b\"@c.test", "\"@b.test\"@c.test", "a@\xef\xbc\xa3\xef\xbc\x8etest"}) {
    std::vector<KxListedEmailAddress*> found;
    EXPECT_EQ(tree->findMatches(normalAddress(spelled).c_str(), found).size(), 1u) << spelled;
  }
}

}  // namespace
