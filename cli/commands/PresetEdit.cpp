#include <fmt/format.h>

#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/UsageError.h"
#include "cli/commands/Presets.h"

namespace orvanta::cli {

namespace {

struct CreateOptions {
  std::string name;
  std::vector<std::string> skills;
  std::optional<std::string> description;
  std::optional<std::string> icon;
};

struct EditOptions {
  std::string preset;
  std::optional<std::string> name;
  std::optional<std::string> description;
  std::optional<std::string> icon;
};

struct PresetOptions {
  std::string preset;
};

ExitStatus create(Session& session, const CreateOptions& options) {
  SkillsEngine& engine = session.engine();
  const auto skillIds = skillIdsNamed(engine, options.skills);
  const Preset preset = session.change([&](const OperationContext&) {
    Preset created = engine.createPreset(options.name, options.description, options.icon);
    if (!skillIds.empty()) engine.addSkillsToPreset(created.id, skillIds);
    return created;
  });
  const std::string name = inQuotes(preset.name);
  showPreset(session, preset.id, fmt::format("{} is made, with {}.", name, counted(skillIds.size(), "skill")));
  if (!session.json()) {
    session.note(skillIds.empty() ? fmt::format("Next: orvanta preset add {} SKILL…", name)
                                  : fmt::format("Next: orvanta preset apply {}", name));
  }
  return ExitStatus::done;
}

ExitStatus edit(Session& session, const EditOptions& options) {
  if (!options.name && !options.description && !options.icon) {
    throw UsageError("Say what to change: --name NAME, --description TEXT or --icon ICON.");
  }
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  session.change([&](const OperationContext&) {
    engine.updatePreset(preset.id, options.name.value_or(preset.name),
                        options.description ? options.description : preset.description,
                        options.icon ? options.icon : preset.icon);
  });
  return showPreset(session, preset.id, fmt::format("{} is changed.", inQuotes(engine.preset(preset.id).name)));
}

ExitStatus deletePreset(Session& session, const PresetOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  session.change([&](const OperationContext&) { engine.deletePreset(preset.id); });
  if (session.json()) {
    writeJson(session.out().stream(), {{"deleted", preset.id}});
  } else {
    session.out().line(fmt::format("{} is deleted; its skills stay in the library and where they are deployed.",
                                   inQuotes(preset.name)));
  }
  return ExitStatus::done;
}

ExitStatus duplicate(Session& session, const PresetOptions& options) {
  SkillsEngine& engine = session.engine();
  const Preset preset = presetNamed(engine, options.preset);
  const Preset copy = session.change([&](const OperationContext&) { return engine.duplicatePreset(preset.id); });
  return showPreset(session, copy.id, fmt::format("{} is a copy of {}.", inQuotes(copy.name), inQuotes(preset.name)));
}

}  // namespace

void setUpPresetCreate(CommandLine& line) {
  CreateOptions& options = line.runs<CreateOptions>(create);
  line.argument("NAME", options.name, "The name of the new preset").required();
  line.argument("SKILL", options.skills, "Skills that it holds from the beginning", Completes::skills);
  line.option("--description", options.description, "TEXT", "What it is for");
  line.option("--icon", options.icon, "ICON", "A symbol to show beside the name");
  line.example("orvanta preset create review lint pdf", "A preset of two skills");
  line.explain(
      "A new preset wants its skills for every active agent; 'orvanta preset toggle' makes exceptions. Nothing is "
      "deployed until it is applied.");
}

void setUpPresetEdit(CommandLine& line) {
  EditOptions& options = line.runs<EditOptions>(edit);
  presetArgument(line, options.preset);
  line.option("--name", options.name, "NAME", "The new name");
  line.option("--description", options.description, "TEXT", "The new description; an empty text takes it away");
  line.option("--icon", options.icon, "ICON", "The new symbol; an empty text takes it away");
  line.example("orvanta preset edit review --name \"Code review\"", "Rename it; all else stays");
}

void setUpPresetDelete(CommandLine& line) {
  presetArgument(line, line.runs<PresetOptions>(deletePreset).preset);
  line.example("orvanta preset delete review", "Forget the set; its skills stay where they are deployed");
  line.explain(
      "'orvanta preset deactivate' takes its skills out of agents' folders. With --json the result is "
      "{\"deleted\": ID}.");
}

void setUpPresetDuplicate(CommandLine& line) {
  presetArgument(line, line.runs<PresetOptions>(duplicate).preset);
  line.example("orvanta preset duplicate review", "A second preset, called \"review copy\"");
}

}  // namespace orvanta::cli
