#pragma once

// The JSON form of the records: objects whose keys are the field names, enumerations as their raw values. An absent
// optional field is left out. Kept apart from the records so that only what speaks JSON pays for it.

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "foundations/Models.h"

namespace orvanta {

using Json = nlohmann::json;

// The document as text. Texts that are not valid UTF-8 (file names, mostly) are repaired, so that it is always JSON.
// `indent` of -1 gives one line.
std::string jsonText(const Json& json, int indent = -1);

// The whole number there, without fractions; nothing for what is no number or does not fit.
std::optional<std::int64_t> wholeNumber(const Json& json);

void to_json(Json& json, const SkillRecord& record);
void to_json(Json& json, const SkillTarget& target);
void to_json(Json& json, const SkillSummary& summary);
void to_json(Json& json, const TagCount& tag);
void to_json(Json& json, const ToolInfo& tool);
void to_json(Json& json, const AgentSkillEntry& entry);
void to_json(Json& json, const DiscoveredLocation& location);
void to_json(Json& json, const DiscoveredGroup& group);
void to_json(Json& json, const Preset& preset);
void to_json(Json& json, const PresetActivation& activation);
void to_json(Json& json, const ApplyReport& report);
void to_json(Json& json, const ProjectRecord& record);
// With the derived "needsAttention".
void to_json(Json& json, const SyncHealth& health);
void to_json(Json& json, const ProjectInfo& project);
void to_json(Json& json, const ProjectSkill& skill);
void to_json(Json& json, const ScannedProject& project);
void to_json(Json& json, const GitPreviewSkill& skill);
void to_json(Json& json, const GitPreview& preview);
void to_json(Json& json, const PlazzaSkill& skill);
// Requires all keys; throws nlohmann's exception otherwise. Installs that are no number count as none.
void from_json(const Json& json, PlazzaSkill& skill);
// The date in ISO 8601.
void to_json(Json& json, const BackupCommit& commit);
void to_json(Json& json, const BackupStatus& status);
void to_json(Json& json, const AuditEntry& entry);
void to_json(Json& json, const DashboardStats& stats);
void to_json(Json& json, const SkillFileEntry& entry);

// As stored in settings, with the keys in snake case. Reading requires "key", "display_name" and "skills_dir"; throws
// nlohmann's exception otherwise. A missing or null "category" means coding.
void to_json(Json& json, const CustomToolDefinition& tool);
void from_json(const Json& json, CustomToolDefinition& tool);

}  // namespace orvanta
