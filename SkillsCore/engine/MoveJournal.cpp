#include "engine/MoveJournal.h"

#include <string>

#include "files/FS.h"
#include "foundations/ModelsJSON.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr int kMostFolders = 1000;

// An object with this member, which is an absolute path in its standard form; anything else is not ours.
Json noteWithPath(const Paths& base, const char* key) {
  constexpr std::size_t kLargest = 64 << 10;
  const auto text = FS::readText(base.moveJournal(), kLargest);
  Json note = text ? Json::parse(*text, nullptr, /*allow_exceptions=*/false) : Json();
  if (!note.is_object() || !note.contains(key) || !note[key].is_string()) return {};
  const fs::path path = note[key].get<std::string>();
  const bool isUsable = path.is_absolute() && path == standardized(path) && path != base.base();
  return isUsable ? note : Json();
}

void writeNote(const Paths& base, const Json& note) {
  FS::writeAtomically(base.moveJournal(), jsonText(note) + "\n");
  FS::flushFolder(base.base());
}

}  // namespace

bool MoveJournal::exists(const Paths& base) { return FS::exists(base.moveJournal()); }

std::optional<MoveJournal::Departure> MoveJournal::departure(const Paths& base) {
  const Json note = noteWithPath(base, "to");
  if (note.is_null()) return std::nullopt;
  try {
    Departure departure{.to = note.at("to").get<std::string>(),
                        .createdFolders = note.at("createdFolders").get<int>(),
                        .moved = note.at("moved").get<bool>()};
    const bool isUsable = departure.createdFolders >= 0 && departure.createdFolders <= kMostFolders;
    return isUsable ? std::optional(departure) : std::nullopt;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

std::optional<MoveJournal::Arrival> MoveJournal::arrival(const Paths& base) {
  const Json note = noteWithPath(base, "from");
  if (note.is_null()) return std::nullopt;
  try {
    return Arrival{.from = note.at("from").get<std::string>(),
                   .renames = note.at("renames").get<bool>(),
                   .moved = note.at("moved").get<bool>()};
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

void MoveJournal::write(const Paths& base, const Departure& departure) {
  writeNote(base,
            {{"to", departure.to.string()}, {"createdFolders", departure.createdFolders}, {"moved", departure.moved}});
}

void MoveJournal::write(const Paths& base, const Arrival& arrival) {
  writeNote(base, {{"from", arrival.from.string()}, {"renames", arrival.renames}, {"moved", arrival.moved}});
}

void MoveJournal::remove(const Paths& base) {
  for (const auto& name : FS::childNames(base.base())) {
    if (isJournalName(name)) FS::removeAny(base.base() / name);
  }
}

bool MoveJournal::isJournalName(std::string_view name) {
  constexpr std::string_view kName = ".moving.json";
  return name == kName || name == FS::unfinishedName(kName).native();
}

}  // namespace orvanta
