#include "sources/WellKnownSkill.h"

#include <algorithm>
#include <mutex>

#include <fmt/format.h>

#include "content/ContentHash.h"
#include "content/Scanner.h"
#include "content/SkillMetadata.h"
#include "files/FS.h"
#include "foundations/Parallel.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/WebAddress.h"
#include "sources/Archive.h"
#include "sources/PublishedPaths.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

using Entry = WellKnownIndex::Entry;
using File = WellKnownIndex::File;

constexpr std::uint64_t kLargestSkill = std::uint64_t{64} << 20;
constexpr std::size_t kFilesAtATime = 8;
constexpr int kNotFound = 404;
constexpr std::string_view kMarker = "SKILL.md";

// Sites that answer every request answer those for missing files with a page.
bool isWebPage(const fs::path& file) {
  constexpr std::size_t enough = 256;
  const auto text = FS::readText(file, kLargestSkill).value_or("");
  const auto start = Text::lowercase(Text::trim(Text::prefixBytes(text, enough)));
  return start.starts_with("<!doctype html") || start.starts_with("<html");
}

std::string referenceTo(const std::string& path) {
  std::vector<std::string> names;
  for (const auto name : Text::split(path, '/')) names.push_back(percentEncoded(name));
  return Text::join(names, "/");
}

WebAddress baseOf(const WellKnownIndex& index) {
  if (auto address = WebAddress::parse(index.baseURL)) return *std::move(address);
  throw SkillsError::invalidInput(shownAddress(index.baseURL) + " is no address of an index");
}

// Fetches one entry into the new folder `folder`.
class Fetch {
 public:
  Fetch(const HTTPClient& client, const WellKnownIndex& index, const Entry& entry, fs::path folder,
        const OperationContext& context)
      : client_(client),
        index_(index),
        base_(baseOf(index)),
        entry_(entry),
        folder_(std::move(folder)),
        context_(context) {}

  void run() {
    if (entry_.kind() == Entry::Kind::archive) return unpackArchive();
    FS::createDirectories(folder_);
    if (entry_.skillMd) takeMarker();
    std::vector<File> files = entry_.files;
    if (entry_.skillMd) std::erase_if(files, isMarker);
    if (files.empty()) return;
    std::stable_partition(files.begin(), files.end(), isMarker);
    const auto place = fetchFirst(files.front());
    std::size_t done = 1;
    parallelFor(
        files.size() - 1,
        [&](std::size_t i) {
          fetch(place, files[i + 1]);
          const std::lock_guard lock(mutex_);
          context_.report("Downloading " + entry_.name, ++done, files.size());
        },
        kFilesAtATime);
  }

 private:
  static bool isMarker(const File& file) { return file.path == kMarker; }

  // The SKILL.md that stands in the index, or lies where the index says. All digests that are given of it count.
  void takeMarker() {
    const auto file = folder_ / kMarker;
    if (entry_.hasSkillText()) {
      FS::writeOver(file, *entry_.skillMd);
    } else {
      download(addressOf(base_, *entry_.skillMd), file);
    }
    verify(file, entry_.digest);
    for (const auto& each : entry_.files) {
      if (isMarker(each)) verify(file, each.digest);
    }
  }

  // Publishers list files as they lie beside the index, or as they lie in the folder of the skill.
  [[nodiscard]] std::vector<WebAddress> possiblePlaces() const {
    std::vector<WebAddress> places{addressOf(base_, ".")};
    const bool canBeFolder = !flawOfPublishedPaths({entry_.name}) && entry_.name.find('/') == std::string::npos;
    if (entry_.skillMd && !entry_.hasSkillText()) {
      places.push_back(addressOf(addressOf(base_, *entry_.skillMd), "."));
    } else if (canBeFolder) {
      places.push_back(addressOf(base_, percentEncoded(entry_.name) + "/"));
    }
    return places;
  }

  // The first file tells which of the places it is: files of one skill never come from several. Returns that place.
  WebAddress fetchFirst(const File& file) {
    for (const auto& place : possiblePlaces()) {
      if (fetchIfThere(place, file)) return place;
    }
    throw SkillsError::network(
        fmt::format("{} does not hold its file {}. Tell the publisher.", index_.domain, Text::singleLine(file.path)));
  }

  bool fetchIfThere(const WebAddress& place, const File& file) {
    const auto target = folder_ / file.path;
    try {
      downloadFrom(place, file);
    } catch (const HTTPStatusError& error) {
      if (error.status() != kNotFound) throw;
      FS::removeAny(target);  // where the client could not
      return false;
    }
    if (isWebPage(target) && target.extension() != ".html") {
      FS::removeAny(target);
      return false;
    }
    verify(target, file.digest);
    return true;
  }

  void fetch(const WebAddress& place, const File& file) {
    downloadFrom(place, file);
    verify(folder_ / file.path, file.digest);
  }

  void downloadFrom(const WebAddress& place, const File& file) {
    const fs::path target = folder_ / file.path;
    FS::createDirectories(target.parent_path());
    download(addressOf(place, referenceTo(file.path)), target);
  }

  void unpackArchive() {
    const auto file = folder_.parent_path() / "download.zip";
    download(addressOf(base_, *entry_.archive), file);
    verify(file, entry_.digest);
    constexpr Archive::Limits limits{.maxBytes = static_cast<std::int64_t>(kLargestSkill),
                                     .maxEntries = static_cast<std::int64_t>(WellKnownIndex::kMostFiles)};
    Archive::extract(file, folder_, limits, context_.stop);
    Archive::stripSymlinks(folder_);
  }

  [[nodiscard]] WebAddress addressOf(const WebAddress& from, const std::string& reference) const {
    auto address = from.resolve(reference);
    if (!address) throw SkillsError::invalidInput(shownAddress(reference) + " is no address of a file");
    requireOwnSite(*address);
    return *std::move(address);
  }

  void requireOwnSite(const WebAddress& address) const {
    if (address.isSameSite(base_)) return;
    throw SkillsError::refused(
        fmt::format("{} leads away from the publisher's own site; that is not followed. Tell {}.",
                    Text::singleLine(address.text), index_.domain));
  }

  void download(const WebAddress& address, const fs::path& file) {
    const HTTPOptions options{.largest = kLargestSkill, .checkRedirect = [this](const std::string& to) {
                                requireOwnSite(WebAddress::ofRedirect(to, base_.host));
                              }};
    std::size_t counted = 0;
    OperationContext context{.stop = context_.stop, .progress = {}, .trace = context_.trace};
    context.progress = [&](const Progress& progress) {
      if (progress.done < counted) counted = 0;  // a redirect, which begins anew
      count(progress.done - counted);
      counted = progress.done;
    };
    client_.download(address.text, file, options, context);
  }

  // What all files take together.
  void count(std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    received_ += bytes;
    if (received_ > kLargestSkill) {
      throw SkillsError::network("It is larger than 64 MiB, the most that is fetched of one skill.");
    }
  }

  void verify(const fs::path& file, const std::optional<std::string>& digest) const {
    if (!digest || ContentHash::sha256Hex(FS::readText(file, kLargestSkill).value_or("")) == *digest) return;
    throw SkillsError::refused(fmt::format(
        "{} is not what the index of {} says: the index is stale, or the file was altered. Try again later, "
        "or tell the publisher.",
        entry_.kind() == Entry::Kind::archive ? "Its archive" : file.lexically_relative(folder_).string(),
        index_.domain));
  }

  const HTTPClient& client_;
  const WellKnownIndex& index_;
  const WebAddress base_;
  const Entry& entry_;
  const fs::path folder_;
  const OperationContext& context_;
  std::mutex mutex_;
  std::uint64_t received_ = 0;
};

fs::path onlySkillIn(const fs::path& folder, const Entry& entry) {
  const auto skills = FS::skillsIn(folder);
  if (skills.empty()) throw SkillsError::invalidInput("Publisher did not provide a SKILL.md for " + entry.name);
  if (skills.size() > 1) {
    throw SkillsError::invalidInput(fmt::format("Publisher provided {} skills as {}, so it says nothing which is meant",
                                                skills.size(), entry.name));
  }
  if (isWebPage(SkillMetadata::markerFile(skills.front()).value_or(""))) {
    throw SkillsError::invalidInput("Publisher provides a web page in place of the SKILL.md for " + entry.name);
  }
  return skills.front();
}

}  // namespace

WellKnownSkill::WellKnownSkill(const HTTPClient& client, const WellKnownIndex& index, const Entry& entry,
                               const fs::path& temp, const OperationContext& context)
    : temporary_(temp, "orvanta-wellknown-") {
  if (entry.flaw) throw SkillsError::invalidInput("It cannot be installed: " + *entry.flaw);
  const auto folder = temporary_.path() / "skill";
  Fetch(client, index, entry, folder, context).run();
  folder_ = onlySkillIn(folder, entry);
}

}  // namespace orvanta
