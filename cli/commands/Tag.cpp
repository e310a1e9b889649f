#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

struct SkillTagsOptions {
  std::string skill;
  std::vector<std::string> tags;
};

struct RenameOptions {
  std::string from;
  std::string to;
};

struct DeleteOptions {
  std::string tag;
};

ExitStatus list(Session& session) {
  const auto tags = session.engine().allTags();
  if (session.json()) {
    writeJsonArray(session.out().stream(), tags);
    return ExitStatus::done;
  }
  Table table({{"TAG", true}, {"SKILLS", false, true}});
  for (const TagCount& tag : tags) table.add({tag.tag, fmt::format("{}", tag.count)});
  table.write(session.out());
  if (tags.empty()) session.out().line("No skill has a tag. 'orvanta tag add SKILL TAG' gives it one.");
  return ExitStatus::done;
}

using Change = SkillSummary (SkillsEngine::*)(const std::string&, const std::vector<std::string>&);

ExitStatus changeTags(Session& session, const SkillTagsOptions& options, Change change) {
  SkillsEngine& engine = session.engine();
  const std::string id = skillNamed(engine, options.skill).id;
  const auto summary = session.change([&](const OperationContext&) { return (engine.*change)(id, options.tags); });
  const std::string name = inQuotes(summary.record.name);
  const std::string tags = Text::singleLine(Text::join(summary.tags, ", "));
  return showSummary(session, summary,
                     tags.empty() ? fmt::format("{} has no tags.", name) : fmt::format("Tags of {}: {}", name, tags));
}

ExitStatus set(Session& session, const SkillTagsOptions& options) {
  return changeTags(session, options, &SkillsEngine::setTags);
}

ExitStatus add(Session& session, const SkillTagsOptions& options) {
  return changeTags(session, options, &SkillsEngine::addTags);
}

ExitStatus remove(Session& session, const SkillTagsOptions& options) {
  return changeTags(session, options, &SkillsEngine::removeTags);
}

ExitStatus rename(Session& session, const RenameOptions& options) {
  session.change([&](const OperationContext&) { session.engine().renameTag(options.from, options.to); });
  return list(session);
}

ExitStatus deleteTag(Session& session, const DeleteOptions& options) {
  session.change([&](const OperationContext&) { session.engine().deleteTag(options.tag); });
  return list(session);
}

Input& skillAndTags(CommandLine& line, SkillTagsOptions& options) {
  skillArgument(line, options.skill);
  return line.argument("TAG", options.tags, "Tags; letter case does not matter", Completes::tags);
}

}  // namespace

void setUpTagList(CommandLine& line) {
  line.runs(list);
  line.example("orvanta tag list", "Every tag, and how many skills have it");
}

void setUpTagSet(CommandLine& line) {
  skillAndTags(line, line.runs<SkillTagsOptions>(set));
  line.example("orvanta tag set pdf office documents", "Exactly these two");
  line.example("orvanta tag set pdf", "None at all");
}

void setUpTagAdd(CommandLine& line) {
  skillAndTags(line, line.runs<SkillTagsOptions>(add)).required();
  line.example("orvanta tag add pdf office", "One more tag");
}

void setUpTagRemove(CommandLine& line) {
  skillAndTags(line, line.runs<SkillTagsOptions>(remove)).required();
  line.example("orvanta tag remove pdf office", "One tag fewer");
}

void setUpTagRename(CommandLine& line) {
  RenameOptions& options = line.runs<RenameOptions>(rename);
  line.argument("OLD", options.from, "The tag as it is", Completes::tags).required();
  line.argument("NEW", options.to, "The tag as it shall be; may be one that exists").required();
  line.example("orvanta tag rename docs documents", "On every skill that has it");
}

void setUpTagDelete(CommandLine& line) {
  DeleteOptions& options = line.runs<DeleteOptions>(deleteTag);
  line.argument("TAG", options.tag, "The tag", Completes::tags).required();
  line.example("orvanta tag delete documents", "From every skill that has it");
}

}  // namespace orvanta::cli
