#include "agents/ChangeJournal.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "foundations/SkillsError.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

using Kind = TargetChange::Kind;

// Paths can hold any byte but this one, so it ends each field.
constexpr char kEnd = '\0';
constexpr std::array<std::pair<Kind, std::string_view>, 4> kKinds{
    {{Kind::placedLink, "link"}, {Kind::placed, "copy"}, {Kind::exchanged, "exchange"}, {Kind::takenAway, "removal"}}};

std::string_view nameOf(Kind kind) {
  return std::find_if(kKinds.begin(), kKinds.end(), [&](const auto& known) { return known.first == kind; })->second;
}

// The fields of a text, one after the other.
class Fields {
 public:
  explicit Fields(std::string_view text) : rest_(text) {}

  // Nothing at the end, or where the text was cut off.
  std::optional<std::string_view> next() {
    const std::size_t end = rest_.find(kEnd);
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view field = rest_.substr(0, end);
    rest_.remove_prefix(end + 1);
    return field;
  }

 private:
  std::string_view rest_;
};

template <typename Number>
bool takeNumber(std::string_view& text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  if (text.starts_with(' ')) text.remove_prefix(1);
  return error == std::errc{};
}

std::optional<FS::Identity> identityIn(std::string_view text) {
  FS::Identity identity;
  const bool isWhole = takeNumber(text, identity.device) && takeNumber(text, identity.inode) &&
                       takeNumber(text, identity.type) && takeNumber(text, identity.modifiedNs) && text.empty();
  return isWhole ? std::optional(identity) : std::nullopt;
}

bool isBelievable(const TargetChange::Note& note) {
  if (!note.target.is_absolute()) return false;
  if (note.kind == Kind::placedLink && !note.linkTo.is_absolute()) return false;
  return note.stage.parent_path() == note.target.parent_path() && isStageName(note.stage.filename().string());
}

// Nothing when the text ends before the note does.
std::optional<TargetChange::Note> noteIn(Fields& fields) {
  std::array<std::string_view, 8> values;
  for (auto& value : values) {
    const auto field = fields.next();
    if (!field) return std::nullopt;
    value = *field;
  }
  const std::string_view kindName = values[1];
  const auto known =
      std::find_if(kKinds.begin(), kKinds.end(), [&](const auto& each) { return each.second == kindName; });
  const auto content = identityIn(values[5]);
  const auto replaced = identityIn(values[7]);
  if (known == kKinds.end() || !content || !replaced) return TargetChange::Note{};
  return TargetChange::Note{.operation = std::string(values[0]),
                            .kind = known->first,
                            .target = values[2],
                            .stage = values[3],
                            .linkTo = values[4],
                            .content = *content,
                            .contentStamp = std::string(values[6]),
                            .replaced = *replaced};
}

std::string textOf(const FS::Identity& identity) {
  return fmt::format("{} {} {} {}", identity.device, identity.inode, identity.type, identity.modifiedNs);
}

std::string textOf(const ChangeJournal::Notes& notes) {
  std::string text;
  for (const auto& note : notes) {
    for (const std::string_view field :
         {std::string_view(note.operation), nameOf(note.kind), std::string_view(note.target.native()),
          std::string_view(note.stage.native()), std::string_view(note.linkTo.native())}) {
      text.append(field).push_back(kEnd);
    }
    text.append(textOf(note.content)).push_back(kEnd);
    text.append(note.contentStamp).push_back(kEnd);
    text.append(textOf(note.replaced)).push_back(kEnd);
  }
  return text;
}

constexpr unsigned kOwnersAlone = S_IRUSR | S_IWUSR;

}  // namespace

bool ChangeJournal::isOwn(const fs::path& file) {
  struct stat status {};
  return ::lstat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid() &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

void ChangeJournal::requireOwn(const fs::path& file) {
  if (!FS::exists(file) || isOwn(file)) return;
  throw SkillsError::io(file.string() + " is not this user's own file; remove it, and try again");
}

void ChangeJournal::append(const fs::path& file, const Notes& notes) { FS::append(file, textOf(notes), kOwnersAlone); }

void ChangeJournal::rewrite(const fs::path& file, const Notes& notes) {
  FS::writeAtomically(file, textOf(notes), kOwnersAlone);
}

ChangeJournal::Notes ChangeJournal::read(const fs::path& file) {
  constexpr std::size_t kLargest = std::size_t{1} << 30;
  Notes notes;
  const auto text = isOwn(file) ? FS::readText(file, kLargest) : std::nullopt;
  Fields fields(text ? std::string_view(*text) : std::string_view());
  while (auto note = noteIn(fields)) {
    if (isBelievable(*note)) notes.push_back(std::move(*note));
  }
  return notes;
}

}  // namespace orvanta
