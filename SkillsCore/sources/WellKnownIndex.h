#pragma once

// The list of skills that a web site publishes below its well-known path. Whoever wrote it is not trusted: what an
// entry says is checked here, before anybody acts upon it, and an entry that must not be installed says why, without
// harm to the others.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundations/Operation.h"
#include "platform/HTTPClient.h"

namespace orvanta {

struct WellKnownIndex {
  static constexpr std::size_t kMostFiles = 2'000;

  struct File {
    std::string path;                   // below the skill's folder, checked
    std::optional<std::string> digest;  // SHA-256 as 64 lower-case hexadecimal digits

    friend bool operator==(const File&, const File&) = default;
  };

  struct Entry {
    // How the site offers the skill.
    enum class Kind { files, skillMd, archive };

    std::string name;  // one visible line
    std::optional<std::string> description;
    std::vector<File> files;
    std::optional<std::string> skillMd;  // the text of the SKILL.md, or its address
    std::optional<std::string> archive;  // its address
    std::optional<std::string> digest;   // of the archive, or of the SKILL.md that `skillMd` gives
    std::optional<std::string> flaw;     // why it cannot be installed, as a sentence without a full stop

    // Of several offers, an archive is one request and comes first, unless it is one that cannot be unpacked.
    [[nodiscard]] Kind kind() const;
    [[nodiscard]] bool hasSkillText() const;

    friend bool operator==(const Entry&, const Entry&) = default;
  };

  std::string domain;   // as it was asked for
  std::string baseURL;  // where the index was found; addresses in it are relative to this
  std::vector<Entry> entries;

  // Asks the site over https, first for the current place of the index, then for the older one. A redirect to another
  // site is followed, and makes that site the publisher. Throws `invalidInput` for what is no bare domain, `notFound`
  // for a site without an index, and `network` for one that cannot be reached or read.
  static WellKnownIndex fetch(const HTTPClient& client, const std::string& domain, const OperationContext& context);

  // Reads the body of an index found at `baseURL`. Entries without a usable name are passed over. Throws `network` for
  // what is no index.
  static WellKnownIndex parse(std::string_view body, const std::string& domain, const std::string& baseURL);

  // The one entry of this name, letter case ignored when none is spelled so. Throws `notFound`, or `invalidInput` when
  // there are several.
  [[nodiscard]] const Entry& entry(const std::string& name) const;
};

// The domain, with a port if it has one, in lower-case letters. Throws `invalidInput` for anything else.
[[nodiscard]] std::string bareDomain(std::string_view text);

}  // namespace orvanta
