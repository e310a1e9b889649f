#include "engine/MoveJournal.h"

#include <string>

#include "files/FS.h"
#include "foundations/ForeignJSON.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr int kMostFolders = 1000;

// An object with this member, which is an absolute path in its standard form; anything else is not ours.
Json noteWithPath(const Paths& base, const char* key) {
  constexpr std::size_t kLargest = 64 << 10;
  const auto content = FS::readText(base.moveJournal(), kLargest);
  Json note = content ? parseForeignJSON(*content) : Json();
  if (!note.is_object() || !note.contains(key) || !note[key].is_string()) return {};
  const auto& text = note[key].get_ref<const std::string&>();
  const fs::path path = text;
  const bool isStandard = path.is_absolute() && path == standardized(path) && text.find('\0') == std::string::npos;
  const bool isUsable = isStandard && path != base.base();
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
    const auto createdFolders = wholeNumber(note.at("createdFolders"));
    if (!createdFolders || *createdFolders < 0 || *createdFolders > kMostFolders) return std::nullopt;
    return Departure{.to = note.at("to").get<std::string>(),
                     .createdFolders = static_cast<int>(*createdFolders),
                     .moved = note.at("moved").get<bool>()};
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
  // The names of what is not finished begin with a dot more.
  return name == ".moving.json" || name.starts_with("..moving.json");
}

}  // namespace orvanta
