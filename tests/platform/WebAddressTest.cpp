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
  for (const std::string reference :
       {"https://user@example.com/", "//:pw@example.com/", "file:///etc/passwd", "ftp://example.com/", "javascript:x",
        "https:evil", "https:\\\\evil.example", "a\nb"}) {
    EXPECT_FALSE(base->resolve(reference)) << reference;
  }
  EXPECT_FALSE(base->resolve(std::string("a\0b", 3)));
  for (const auto* text : {"", "example.com/a", "/a", "https://", "https://a b/"}) {
    EXPECT_FALSE(WebAddress::parse(text)) << text;
  }
}

TEST(WebAddress, AProxyHasAKnownSchemeAHostAndPerhapsAPort) {
  for (const auto* text :
       {"http://proxy.example", "https://proxy.example:8080", "HTTP://10.0.0.1:3128/", "socks4://h:1080",
        "socks4a://h:1080", "socks5://user:p%40ss@h:1080", "socks5h://localhost:65535", "http://[::1]:8080"}) {
    EXPECT_TRUE(isProxyAddress(text)) << text;
  }
  for (const auto* text : {"", "here", "proxy.example:8080", "foo://h", "ftp://h", "http://", "http://:8080", "http:/h",
                           "http://me:pw@", "http://me:pw@/x y"}) {
    EXPECT_FALSE(isProxyAddress(text)) << text << " names no proxy";
  }
  for (const auto* text : {"http://a b", "http://h:0", "http://h:65536", "http://h:port", "http://h:80:80",
                           "http://h/path", "http://h?q", "http://h#f", "http://h\n", "http://\xff"}) {
    EXPECT_FALSE(isProxyAddress(text)) << text << " says more than a host and a port";
  }
  EXPECT_FALSE(isProxyAddress(std::string("http://h\0x", 10)));
}

TEST(WebAddress, WhatMayBeAPasswordIsNotShown) {
  for (const auto& [text, shown] : std::vector<std::pair<std::string, std::string>>{
           {"https://host:1/a", "https://host:1/a"},
           {"http://me:secret@/x y", "http://***@/x y"},
           {"http://me:sec/re@t@host", "http://***@host"},
           {"me:secret@host", "***@host"},
           {"me:secret://more@host", "***@host"},
           {"@", "***@"},
           {"http://h\x1b[31m", "http://h [31m"},
       }) {
    EXPECT_EQ(shownAddress(text), shown);
  }
}

}  // namespace
}  // namespace orvanta
