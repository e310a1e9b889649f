#include "cli/Output.h"

namespace orvanta {

void to_json(Json& json, const Placement& placement) {
  json = Json{{"skillId", placement.skillId},
              {"tool", placement.tool},
              {"targetPath", placement.targetPath},
              {"mode", rawValue(placement.mode)},
              {"changed", placement.changed}};
  if (placement.note) json["note"] = *placement.note;
}

void to_json(Json& json, const PlannedStep& step) {
  json = Json{{"action", rawValue(step.action)}, {"skillName", step.skillName}, {"path", step.path}};
  if (step.skillId) json["skillId"] = *step.skillId;
  if (step.tool) json["tool"] = *step.tool;
  if (step.reason) json["reason"] = *step.reason;
}

}  // namespace orvanta

namespace orvanta::cli {

void writeJson(std::ostream& out, const Json& json) { out << jsonText(json) << '\n'; }

void writeError(std::ostream& out, std::string_view kind, std::string_view message) {
  writeJson(out, {{"error", {{"kind", kind}, {"message", message}}}});
}

void JsonArray::add(const Json& element) {
  *out_ << (isEmpty_ ? "\n" : ",\n") << jsonText(element);
  isEmpty_ = false;
}

void JsonObject::begin(std::string_view key) {
  *out_ << (isEmpty_ ? "\"" : ",\"") << key << "\":";
  isEmpty_ = false;
}

}  // namespace orvanta::cli
