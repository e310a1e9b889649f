#include "agents/ChangeJournal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

using Kind = TargetChange::Kind;

// Paths can hold any byte but this one, so it ends each field.
constexpr char kEnd = '\0';
constexpr std::string_view kTitle = "orvanta changes 1";
constexpr std::array<std::pair<Kind, std::string_view>, 5> kKinds{{{Kind::placedLink, "link"},
                                                                   {Kind::placed, "copy"},
                                                                   {Kind::exchanged, "exchange"},
                                                                   {Kind::takenAway, "removal"},
                                                                   {Kind::leftBehind, "leftover"}}};

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
  if (note.kind == Kind::placedLink) return note.stage.empty() && note.linkTo.is_absolute();
  return note.stage.parent_path() == note.target.parent_path() && isStageName(note.stage.filename().string());
}

// Nothing when the text ends before the note does.
std::optional<TargetChange::Note> noteIn(Fields& fields) {
  std::array<std::string_view, 5> values;
  for (auto& value : values) {
    const auto field = fields.next();
    if (!field) return std::nullopt;
    value = *field;
  }
  const auto& [kind, target, stage, linkTo, content] = values;
  const std::string_view kindName = kind;
  const auto known =
      std::find_if(kKinds.begin(), kKinds.end(), [&](const auto& each) { return each.second == kindName; });
  const auto identity = identityIn(content);
  if (known == kKinds.end() || !identity) return TargetChange::Note{};
  return TargetChange::Note{
      .kind = known->first, .target = target, .stage = stage, .linkTo = linkTo, .content = *identity};
}

}  // namespace

void ChangeJournal::write(const fs::path& file) const {
  std::string text;
  const auto out = std::back_inserter(text);
  fmt::format_to(out, "{}{}{}{}", kTitle, kEnd, id, kEnd);
  for (const auto& note : notes) {
    const FS::Identity& content = note.content;
    fmt::format_to(out, "{}{}{}{}{}{}{}{}{} {} {} {}{}", nameOf(note.kind), kEnd, note.target.native(), kEnd,
                   note.stage.native(), kEnd, note.linkTo.native(), kEnd, content.device, content.inode, content.type,
                   content.modifiedNs, kEnd);
  }
  FS::writeOver(file, text);
}

std::optional<ChangeJournal> ChangeJournal::read(const fs::path& file) {
  constexpr std::size_t kLargest = std::size_t{1} << 30;
  const auto text = FS::readText(file, kLargest);
  if (!text) return std::nullopt;
  Fields fields(*text);
  ChangeJournal journal;
  if (fields.next() != kTitle) return journal;  // cut off before anything was changed
  journal.id = fields.next().value_or("");
  while (auto note = noteIn(fields)) {
    if (isBelievable(*note)) journal.notes.push_back(std::move(*note));
  }
  return journal;
}

}  // namespace orvanta
