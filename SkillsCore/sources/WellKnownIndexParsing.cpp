// How the text of an index becomes entries. Indexes come in two forms that may be mixed: entries that name "files",
// "skill-md" or "archive", and entries of a "type" with a "url" and a "digest".

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "content/SkillMetadata.h"
#include "foundations/ForeignJSON.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/WebAddress.h"
#include "sources/PublishedPaths.h"
#include "sources/WellKnownIndex.h"

namespace orvanta {

namespace {

using Entry = WellKnownIndex::Entry;
using File = WellKnownIndex::File;
using OptionalText = std::optional<std::string>;

constexpr std::size_t kShown = 60;

std::string shown(std::string_view text) {
  return Text::fitToWidth(Text::singleLine(Text::maskCredentials(text)), kShown);
}

bool endsWithAny(std::string_view text, std::initializer_list<std::string_view> endings) {
  const auto lower = Text::lowercase(text);
  return std::any_of(endings.begin(), endings.end(), [&](std::string_view each) { return lower.ends_with(each); });
}

// An address without what may follow its path.
std::string_view pathOf(std::string_view address) { return address.substr(0, address.find_first_of("?#")); }

bool isTarball(std::string_view address) {
  return endsWithAny(pathOf(address), {".tar.gz", ".tgz", ".tar.xz", ".tar.bz2", ".tar"});
}

[[noreturn]] void throwUnreadable(const std::string& url, std::string_view why) {
  throw SkillsError::network(fmt::format("The index at {} cannot be read: {}. Tell its publisher, or check the domain.",
                                         Text::singleLine(url), why));
}

Json parsed(std::string_view body, const std::string& url) {
  Json document = parseForeignJSON(body);
  if (document.is_discarded()) throwUnreadable(url, "it is no JSON, or far more than a list of skills");
  return document;
}

// The array itself, or the one under "skills".
const Json& listIn(const Json& document, const std::string& url) {
  if (document.is_array()) return document;
  const auto found = document.find("skills");
  if (found == document.end() || !found->is_array()) throwUnreadable(url, "it has no list of skills");
  return *found;
}

// Reads one entry; the first thing that is wrong with it becomes its flaw.
class EntryReader {
 public:
  EntryReader(const Json& json, const WebAddress& base) : json_(json), base_(base) {}

  // Nothing for what has no usable name.
  std::optional<Entry> read() {
    if (!json_.is_object()) return std::nullopt;
    entry_.name = Text::trim(Text::singleLine(text(json_, "name").value_or("")));
    if (!SkillMetadata::sanitizeSkillName(entry_.name)) return std::nullopt;
    entry_.description = text(json_, "description");
    readFiles();
    entry_.skillMd = text(json_, "skill-md");
    if (!entry_.skillMd) entry_.skillMd = text(json_, "skill_md");
    entry_.archive = text(json_, "archive");
    entry_.digest = digest(json_);
    readTypeAndURL();
    checkWhole();
    return std::move(entry_);
  }

 private:
  void flaw(const std::string& what) {
    if (!entry_.flaw) entry_.flaw = what;
  }

  OptionalText text(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) return std::nullopt;
    if (!found->is_string()) {
      flaw(fmt::format("its \"{}\" is no text", key));
      return std::nullopt;
    }
    const auto& value = found->get_ref<const std::string&>();
    return value.empty() ? std::nullopt : OptionalText(value);
  }

  OptionalText digest(const Json& object) {
    constexpr std::string_view algorithm = "sha256:";
    constexpr std::size_t digits = 64;
    const auto given = text(object, "digest");
    if (!given) return std::nullopt;
    const auto value = Text::lowercase(*given);
    const bool isHex = value.find_first_not_of("0123456789abcdef", algorithm.size()) == std::string::npos;
    if (!value.starts_with(algorithm) || value.size() != algorithm.size() + digits || !isHex) {
      flaw(fmt::format("its digest '{}' is none that can be checked", shown(*given)));
      return std::nullopt;
    }
    return value.substr(algorithm.size());
  }

  void readFiles() {
    const auto found = json_.find("files");
    if (found == json_.end() || found->is_null()) return;
    if (!found->is_array()) return flaw("its \"files\" are no list");
    if (found->size() > WellKnownIndex::kMostFiles) {
      return flaw(fmt::format("it has more than {} files", WellKnownIndex::kMostFiles));
    }
    std::vector<std::string> paths;
    for (const auto& each : *found) {
      if (!each.is_string() && !each.is_object()) return flaw("one of its \"files\" is neither a path nor an object");
      const auto path = each.is_string() ? each.get<std::string>() : text(each, "path").value_or("");
      entry_.files.push_back({path, each.is_object() ? digest(each) : std::nullopt});
      paths.push_back(path);
    }
    if (const auto wrong = flawOfPublishedPaths(paths)) flaw(*wrong);
  }

  void readTypeAndURL() {
    const auto type = text(json_, "type");
    const auto url = text(json_, "url");
    if (type && *type != "skill-md" && *type != "archive") {
      return flaw(fmt::format("its type '{}' is unknown; a newer Orvanta may know it", shown(*type)));
    }
    if (!url) return;
    const bool isArchive = type ? *type == "archive" : isTarball(*url) || endsWithAny(pathOf(*url), {".zip", ".skill"});
    if (isArchive) {
      entry_.archive = url;
    } else if (type || endsWithAny(pathOf(*url), {".md"})) {
      checkAddress(*url);
      entry_.skillMd = url;
    } else if (entry_.files.empty()) {
      flaw("neither its \"type\" nor its \"url\" says what it is");
    }
  }

  void checkAddress(const std::string& reference) {
    const auto address = base_.resolve(reference);
    if (!address) return flaw(fmt::format("'{}' is no address of a file", shown(reference)));
    if (!address->isSameSite(base_)) {
      flaw(fmt::format("its address {} leads away from the publisher's own site", shown(address->text)));
    }
  }

  void checkWhole() {
    if (entry_.archive) checkAddress(*entry_.archive);
    if (entry_.skillMd && !entry_.hasSkillText()) checkAddress(*entry_.skillMd);
    if (!entry_.archive && !entry_.skillMd && entry_.files.empty()) flaw("it names no files");
    const bool isArchive = entry_.kind() == Entry::Kind::archive;
    if (isArchive && isTarball(*entry_.archive)) flaw("it is a .tar.gz archive, which Orvanta cannot unpack yet");
    if (!isArchive && entry_.digest && !entry_.skillMd) flaw("its digest belongs to none of its files");
  }

  const Json& json_;
  const WebAddress& base_;
  Entry entry_;
};

}  // namespace

Entry::Kind Entry::kind() const {
  const bool hasOther = !files.empty() || skillMd.has_value();
  if (archive && (!hasOther || !isTarball(*archive))) return Kind::archive;
  return files.empty() ? Kind::skillMd : Kind::files;
}

bool Entry::hasSkillText() const {
  return skillMd && (skillMd->starts_with("---") || skillMd->find('\n') != std::string::npos);
}

WellKnownIndex WellKnownIndex::parse(std::string_view body, const std::string& domain, const std::string& baseURL) {
  const auto base = WebAddress::parse(baseURL);
  if (!base) throwUnreadable(baseURL, "its address has a password in it, or is none");
  WellKnownIndex index{.domain = domain, .baseURL = base->text, .entries = {}};
  const Json document = parsed(body, base->text);
  for (const auto& each : listIn(document, base->text)) {
    if (auto entry = EntryReader(each, *base).read()) index.entries.push_back(*std::move(entry));
  }
  return index;
}

}  // namespace orvanta
