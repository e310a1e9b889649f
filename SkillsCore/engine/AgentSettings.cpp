#include "engine/AgentSettings.h"

#include <algorithm>
#include <cctype>

#include "files/FS.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr const char* kPaths = "custom_tool_paths";
constexpr const char* kProjectPaths = "custom_tool_project_paths";
constexpr const char* kCustomTools = "custom_tools";
constexpr const char* kDisabled = "disabled_tools";
constexpr const char* kOrder = "agent_order";

// An empty collection is stored as no setting at all.
template <typename Collection>
void save(SkillStore& store, const char* key, const Collection& collection) {
  store.setJSONSetting(key, collection.empty() ? std::nullopt : std::optional(collection));
}

bool isKeyCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-'; }

// Settings are kept as JSON, which holds nothing but text: other bytes would come back as another name.
void requireText(const std::string& value, const std::string& what) {
  if (Text::isValidUTF8(value)) return;
  throw SkillsError::invalidInput(what + " '" + Text::repairUTF8(value) + "' is not valid UTF-8; choose another");
}

void requireValid(const CustomToolDefinition& tool) {
  if (tool.key.empty() || !std::all_of(tool.key.begin(), tool.key.end(), isKeyCharacter)) {
    throw SkillsError::invalidInput("Tool key may only contain letters, digits, '_' and '-'");
  }
  const auto& builtin = ToolAdapters::builtin();
  if (std::any_of(builtin.begin(), builtin.end(), [&](const ToolAdapter& known) { return known.key == tool.key; })) {
    throw SkillsError::conflict("'" + tool.key + "' is a built-in agent");
  }
  if (Text::trim(tool.displayName).empty()) throw SkillsError::invalidInput("Display name is required");
  if (Text::trim(tool.skillsDir).empty()) throw SkillsError::invalidInput("Skills directory is required");
  requireText(tool.displayName, "The display name");
}

void requireProjectRelative(const std::string& path) {
  requireText(path, "The folder");
  const fs::path relative = fs::path(path).lexically_normal();
  const bool leaves = relative.empty() || relative == "." || relative.is_absolute() || *relative.begin() == "..";
  if (leaves) {
    throw SkillsError::invalidInput("'" + path + "' is not a folder inside a project; give one relative to its root");
  }
}

void setOrErase(std::map<std::string, std::string>& map, const std::string& key,
                const std::optional<std::string>& value) {
  if (value) {
    map[key] = *value;
  } else {
    map.erase(key);
  }
}

}  // namespace

std::vector<ToolAdapter> AgentSettings::adapters() { return ToolAdapters::all(library_.store.toolOverrides()); }

ToolAdapter AgentSettings::adapter(const std::string& key) {
  auto found = ToolAdapters::find(key, library_.store.toolOverrides());
  if (!found) throw SkillsError::notFound("Agent not found: " + key);
  return *std::move(found);
}

std::vector<ToolInfo> AgentSettings::tools() {
  const ToolOverrides overrides = library_.store.toolOverrides();
  const auto counts = library_.store.targetCounts();
  std::vector<ToolInfo> tools;
  for (const auto& adapter : ToolAdapters::all(overrides)) {
    const auto count = counts.find(adapter.key);
    tools.push_back({.key = adapter.key,
                     .displayName = adapter.displayName,
                     .skillsDir = fsPath(adapter.skillsDir(library_.user)),
                     .projectRelativeSkillsDir = adapter.projectRelativeSkillsDir(),
                     .installed = adapter.isInstalled(library_.user),
                     .enabled = !overrides.disabled.contains(adapter.key),
                     .isCustom = adapter.isCustom,
                     .hasPathOverride = adapter.hasPathOverride(),
                     .recursiveScan = adapter.recursiveScan,
                     .category = adapter.category,
                     .deployedCount = count == counts.end() ? 0 : count->second});
  }
  return tools;
}

void AgentSettings::setToolEnabled(const std::string& key, bool enabled) {
  adapter(key);
  library_.transaction([&] {
    auto disabled = library_.store.toolOverrides().disabled;
    if (enabled) {
      disabled.erase(key);
    } else {
      disabled.insert(key);
    }
    save(library_.store, kDisabled, disabled);
    library_.store.logAudit({.action = enabled ? "enable_tool" : "disable_tool", .tool = key});
  });
}

void AgentSettings::setToolPath(const std::string& key, const std::optional<std::string>& path) {
  adapter(key);
  if (path) requireUsablePath(*path);
  library_.transaction([&] {
    auto paths = library_.store.toolOverrides().pathOverrides;
    setOrErase(paths, key, path);
    save(library_.store, kPaths, paths);
    library_.store.logAudit({.action = "set_tool_path", .tool = key, .detail = path});
  });
}

void AgentSettings::setToolProjectPath(const std::string& key, const std::optional<std::string>& path) {
  adapter(key);
  if (path) requireProjectRelative(*path);
  library_.transaction([&] {
    auto paths = library_.store.toolOverrides().projectPathOverrides;
    setOrErase(paths, key, path);
    save(library_.store, kProjectPaths, paths);
    library_.store.logAudit({.action = "set_tool_project_path", .tool = key, .detail = path});
  });
}

void AgentSettings::setToolOrder(const std::vector<std::string>& keys) {
  for (const auto& key : keys) adapter(key);
  library_.transaction([&] {
    save(library_.store, kOrder, keys);
    library_.store.logAudit({.action = "set_tool_order", .detail = Text::join(keys, ", ")});
  });
}

void AgentSettings::saveCustomTool(const CustomToolDefinition& definition) {
  requireValid(definition);
  CustomToolDefinition tool = definition;
  tool.displayName = Text::trim(definition.displayName);
  tool.skillsDir = Text::trim(definition.skillsDir);
  requireUsablePath(tool.skillsDir);
  if (tool.projectRelativeSkillsDir) requireProjectRelative(*tool.projectRelativeSkillsDir);
  library_.transaction([&] {
    auto tools = library_.store.toolOverrides().customTools;
    const auto same =
        std::find_if(tools.begin(), tools.end(), [&](const auto& known) { return known.key == tool.key; });
    if (same == tools.end()) {
      tools.push_back(tool);
    } else {
      *same = tool;
    }
    save(library_.store, kCustomTools, tools);
    library_.store.logAudit({.action = "save_custom_tool", .tool = tool.key, .detail = tool.skillsDir});
  });
}

std::size_t AgentSettings::removeCustomTool(const std::string& key) {
  if (!adapter(key).isCustom) {
    throw SkillsError::invalidInput("'" + key + "' is a built-in agent and cannot be removed; disable it instead");
  }
  return library_.transaction([&] {
    SkillStore& store = library_.store;
    ToolOverrides overrides = store.toolOverrides();
    std::erase_if(overrides.customTools, [&](const auto& tool) { return tool.key == key; });
    overrides.pathOverrides.erase(key);
    overrides.projectPathOverrides.erase(key);
    overrides.disabled.erase(key);
    std::erase(overrides.order, key);
    save(store, kCustomTools, overrides.customTools);
    save(store, kPaths, overrides.pathOverrides);
    save(store, kProjectPaths, overrides.projectPathOverrides);
    save(store, kDisabled, overrides.disabled);
    save(store, kOrder, overrides.order);
    const auto targets = store.targetsOfTool(key);
    for (const auto& target : targets) store.deleteTarget(target.skillId, key);
    store.logAudit({.action = "remove_custom_tool", .tool = key});
    return targets.size();
  });
}

// A skills folder in or around the library would mix what agents hold with what the library keeps.
void AgentSettings::requireUsablePath(const std::string& path) const {
  requireText(path, "The folder");
  const fs::path expanded = expandingTilde(path, library_.user.home);
  if (!expanded.is_absolute()) {
    throw SkillsError::invalidInput("'" + path + "' is not an absolute path; begin it with / or ~");
  }
  const fs::path folder = FS::resolved(expanded);
  const fs::path base = FS::resolved(library_.paths.base());
  if (isInside(folder, base) || isInside(base, folder)) {
    throw SkillsError::invalidInput(path + " is inside the library or holds it; choose a folder apart from " +
                                    library_.paths.base().string());
  }
}

}  // namespace orvanta
