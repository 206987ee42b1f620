#include "http/RequestFields.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace std::chrono_literals;

struct TargetCase {
  const char* target;
  const char* path;  // null: no target
  std::optional<std::chrono::seconds> wait;
};

const TargetCase kTargetCases[] = {
    {"/v1/policy", "/v1/policy", std::nullopt},
    {"/v1/policy?", "/v1/policy", std::nullopt},
    {"/v1/policy?wait=10", "/v1/policy", 10s},
    {"/v1/policy?wait=0", "/v1/policy", 0s},
    {"/v1/policy?a=b&wait=010&c", "/v1/policy", 10s},
    {"/v1/policy?await=10", "/v1/policy", std::nullopt},
    {"/v1/policy?wait=301", "/v1/policy", 300s},
    {"/v1/policy?wait=99999999999999999999", "/v1/policy", 300s},
    {"http://policy.example.test:5060/v1/policy?wait=3", "/v1/policy", 3s},
    {"HTTPS://policy.example.test/", "/", std::nullopt},
    {"//double", "//double", std::nullopt},
    {"/v1/policy?wait=", nullptr, std::nullopt},
    {"/v1/policy?wait", nullptr, std::nullopt},
    {"/v1/policy?wait=-1", nullptr, std::nullopt},
    {"/v1/policy?wait=1.5", nullptr, std::nullopt},
    {"/v1/policy?wait=1&wait=2", nullptr, std::nullopt},
    {"", nullptr, std::nullopt},
    {"*", nullptr, std::nullopt},
    {"v1/policy", nullptr, std::nullopt},
    {"http://policy.example.test", nullptr, std::nullopt},
    {"http://policy.example.test?/v1", nullptr, std::nullopt},
    {"ftp://policy.example.test/", nullptr, std::nullopt},
};

TEST(RequestFields, targetsAreTakenApart) {
  for (const TargetCase& row : kTargetCases) {
    const std::optional<Target> target = parseTarget(row.target, 300s);
    ASSERT_EQ(target.has_value(), row.path != nullptr) << row.target;
    if (target) {
      EXPECT_EQ(target->path, row.path) << row.target;
      EXPECT_EQ(target->wait, row.wait) << row.target;
    }
  }
}

struct TagCase {
  const char* field;
  bool holds;
};

const TagCase kTagCases[] = {
    {"\"17-ab\"", true},
    {"W/\"17-ab\"", true},
    {"*", true},
    {"  *  ", true},
    {"\"16-cd\", \"17-ab\"", true},
    {"\"16-cd\",,\t W/\"17-ab\" , \"x\"", true},
    {"\"a,b\", \"17-ab\"", true},
    {"", false},
    {"17-ab", false},
    {"\"17-ab", false},
    {"\"17-a\"", false},
    {"\"17-abc\"", false},
    {"\"x\" *", false},
    {"w/\"17-ab\"", false},
    {"\"x,\"17-ab\"", false},
    {"\"", false},
    {"W/", false},
};

TEST(RequestFields, tagsAreFoundInLists) {
  for (const TagCase& row : kTagCases) {
    EXPECT_EQ(holdsTag(row.field, "\"17-ab\""), row.holds) << row.field;
  }
}

struct EncodingCase {
  const char* field;
  bool gzip;
};

const EncodingCase kEncodingCases[] = {
    {"gzip", true},
    {"GZIP", true},
    {"x-gzip", true},
    {"deflate, gzip", true},
    {"gzip;q=0.5", true},
    {"gzip ; q=0.001", true},
    {"br;q=1.0, gzip;q=0.8, *;q=0.1", true},
    {"*", true},
    {"gzip, identity;q=0.5", true},
    {"gzip;level=9", true},
    {"", false},
    {"identity", false},
    {"deflate, br", false},
    {"gzip;q=0", false},
    {"gzip;q=0.000", false},
    {"*;q=0", false},
    {"gzip;q=0, *", false},
    {"gzip;q=0.5, identity", false},
    {"gzip;q=x", false},
    {"gzip;q=", false},
    {"gzip;q=1.5", false},
    {"gzip;q=0.0001", false},
    {"gzipped", false},
    {";q=1", false},
};

TEST(RequestFields, gzipIsTakenWhereItIsWanted) {
  for (const EncodingCase& row : kEncodingCases) {
    EXPECT_EQ(takesGzip(row.field), row.gzip) << row.field;
  }
}

struct TokenCase {
  const char* field;
  const char* token;  // null: none
};

const TokenCase kTokenCases[] = {
    {"Bearer abc-._~+/09==", "abc-._~+/09=="},
    {"bearer  abc ", "abc"},
    {"Bearer", nullptr},
    {"Bearer ", nullptr},
    {"Bearer a b", nullptr},
    {"Bearer =", nullptr},
    {"Bearer a=b", nullptr},
    {"Bearer \"abc\"", nullptr},
    {"Basic abc", nullptr},
    {"Bearerabc", nullptr},
    {"abc", nullptr},
    {"", nullptr},
};

TEST(RequestFields, tokensAreThoseOfTheBearerScheme) {
  for (const TokenCase& row : kTokenCases) {
    const std::optional<std::string_view> token = bearerToken(row.field);
    ASSERT_EQ(token.has_value(), row.token != nullptr) << row.field;
    if (token) {
      EXPECT_EQ(*token, row.token);
    }
  }
}

}  // namespace
