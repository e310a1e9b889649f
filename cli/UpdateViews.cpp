#include "cli/UpdateViews.h"

#include <algorithm>

#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Table.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

std::string kindOf(const SkillFileChange& change) {
  return change.isAdded() ? "added" : change.isRemoved() ? "removed" : "changed";
}

Style styleOf(const SkillFileChange& change) {
  return change.isAdded() ? Style::good : change.isRemoved() ? Style::bad : Style::warning;
}

std::string sizeOf(const std::optional<ContentEntry>& entry) {
  if (!entry) return "";
  return entry->isSymlink ? "link" : byteCount(entry->size);
}

std::string noteOn(const SkillFileChange& change) {
  const bool was = change.before && change.before->isExecutable() && !change.before->isSymlink;
  const bool is = change.after && change.after->isExecutable() && !change.after->isSymlink;
  if (is) return "executable";
  return was && change.after ? "no longer executable" : "";
}

Style styleOfLine(std::string_view line) {
  if (line.starts_with('+')) return Style::good;
  if (line.starts_with('-')) return Style::bad;
  if (line.starts_with("@@")) return Style::faint;
  return line.starts_with("diff ") ? Style::strong : Style::plain;
}

void showDiff(const Terminal& terminal, const UnifiedDiff& diff) {
  std::string_view text = diff.text;
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (!text.empty()) terminal.line("");
  for (const std::string_view line : text.empty() ? std::vector<std::string_view>{} : Text::split(text, '\n')) {
    terminal.line(terminal.styled(Text::revealed(line), styleOfLine(line)));
  }
  if (diff.isCut) terminal.line("… and more than can be shown.");
  for (const std::string& path : diff.omitted) {
    terminal.line(fmt::format("The content of {} is not shown: it is no text, or too much.", Text::revealed(path)));
  }
}

Json sideAsJson(const std::optional<ContentEntry>& entry) {
  if (!entry) return nullptr;
  return {{"size", entry->size}, {"isExecutable", entry->isExecutable()}, {"isSymlink", entry->isSymlink}};
}

}  // namespace

std::string figuresOf(const std::vector<SkillFileChange>& changes) {
  std::vector<std::string> figures;
  for (const std::string kind : {"changed", "added", "removed"}) {
    const auto count = std::count_if(changes.begin(), changes.end(), [&](const auto& c) { return kindOf(c) == kind; });
    if (count > 0) figures.push_back(fmt::format("{} {}", count, kind));
  }
  return Text::join(figures, ", ");
}

void showView(const Terminal& terminal, const UpdateView& view) {
  Table table({{"CHANGE"}, {"FILE", true}, {"WAS"}, {"IS"}, {"NOTE"}});
  for (const SkillFileChange& change : view.changes) {
    table.add({{kindOf(change), styleOf(change)},
               Text::revealed(change.path),
               sizeOf(change.before),
               sizeOf(change.after),
               {noteOn(change), Style::warning}});
  }
  table.write(terminal);
  for (const std::string& finding : view.findings) {
    terminal.line(fmt::format("{} {}.", terminal.styled("note:", Style::warning), Text::singleLine(finding)));
  }
  showDiff(terminal, view.diff);
}

Json viewAsJson(const IncomingUpdate& update, const UpdateView& view) {
  Json files = Json::array();
  for (const SkillFileChange& change : view.changes) {
    files.push_back({{"path", change.path},
                     {"change", kindOf(change)},
                     {"before", sideAsJson(change.before)},
                     {"after", sideAsJson(change.after)}});
  }
  return {{"skillId", update.skill().id},
          {"name", update.skill().name},
          {"revision", update.revision ? Json(*update.revision) : Json()},
          {"overwritesEdits", update.overwritesEdits()},
          {"files", files},
          {"findings", view.findings},
          {"diff", view.diff.text},
          {"isCut", view.diff.isCut},
          {"omitted", view.diff.omitted}};
}

}  // namespace orvanta::cli
