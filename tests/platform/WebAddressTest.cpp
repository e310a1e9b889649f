#include "platform/WebAddress.h"

#include <gtest/gtest.h>

namespace orvanta {
namespace {

TEST(WebAddress, AReferenceLeadsWhereARequestWouldGo) {
  const auto base = WebAddress::parse("https://example.com/a/index.json?x#y");
  ASSERT_TRUE(base);
  EXPECT_EQ(base->origin, "https://example.com:443");
  struct Case {
    std::string reference;
    std::string leadsTo;
    bool staysHere;
  };
  for (const auto& [reference, leadsTo, staysHere] : std::vector<Case>{
           {"b/c.md", "https://example.com/a/b/c.md", true},
           {".", "https://example.com/a/", true},
           {"/b", "https://example.com/b", true},
           {"../../../b", "https://example.com/b", true},
           {"%2e%2e/b%2Fc", "https://example.com/a/%2e%2e/b%2Fc", true},
           {"\\\\evil.example\\b", "https://example.com/a/\\\\evil.example\\b", true},
           {"https://example.com:443/b", "https://example.com:443/b", true},
           {"//evil.example/b", "https://evil.example/b", false},
           {"https://example.com.evil.example/b", "https://example.com.evil.example/b", false},
           {"https://example.com:8443/b", "https://example.com:8443/b", false},
           {"http://example.com/b", "http://example.com/b", false},
           {"https://EXAMPLE.com/b", "https://EXAMPLE.com/b", true},
           {"https:///evil.example/b", "https://evil.example/b", false},
       }) {
    const auto address = base->resolve(reference);
    ASSERT_TRUE(address) << reference;
    EXPECT_EQ(WebAddress::parse(address->text)->origin, address->origin);
    EXPECT_EQ(address->isSameSite(*base), staysHere) << reference << " → " << address->text;
    EXPECT_EQ(address->text, leadsTo);
  }
  for (const auto& reference :
       {std::string("https://user@example.com/"), std::string("//:pw@example.com/"), std::string("file:///etc/passwd"),
        std::string("ftp://example.com/"), std::string("javascript:x"), std::string("https:evil"),
        std::string("https:\\\\evil.example"), std::string("a\nb"), std::string("a\0b", 3)}) {
    EXPECT_FALSE(base->resolve(reference)) << reference;
  }
  for (const auto* text : {"", "example.com/a", "/a", "https://", "https://a b/"}) {
    EXPECT_FALSE(WebAddress::parse(text)) << text;
  }
}

}  // namespace
}  // namespace orvanta
