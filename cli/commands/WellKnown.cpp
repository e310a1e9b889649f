#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Common.h"
#include "cli/commands/SiteSource.h"

namespace orvanta::cli {

namespace {

struct Options {
  std::string domain;
};

Json asJson(const WellKnownIndex::Entry& entry) {
  Json json{{"name", entry.name}, {"installable", !entry.flaw}, {"files", Json::array()}};
  for (const auto& file : entry.files) json["files"].push_back(file.path);
  if (entry.description) json["description"] = *entry.description;
  if (entry.skillMd) json["skillMd"] = *entry.skillMd;
  if (entry.archive) json["archive"] = *entry.archive;
  if (entry.flaw) json["reason"] = *entry.flaw;
  return json;
}

ExitStatus run(Session& session, const Options& options) {
  const WellKnownIndex index = lookedAt(session, [&](const OperationContext& context) {
    return session.engine().fetchWellKnown(options.domain, context);
  });
  if (session.json()) {
    JsonArray array(session.out().stream());
    for (const auto& entry : index.entries) array.add(asJson(entry));
    return ExitStatus::done;
  }
  Table table({{"NAME", true}, {"KIND", true}, {"DESCRIPTION", true}});
  for (const auto& entry : index.entries) {
    table.add({{entry.name, Style::strong}, offerOf(entry), entry.description.value_or("")});
  }
  table.write(session.out());
  if (index.entries.empty()) {
    session.out().line("There is no skill in its index.");
  } else {
    session.note(fmt::format("Next: orvanta install well-known:{}/NAME   (or --all)", index.domain));
  }
  return ExitStatus::done;
}

}  // namespace

void setUpWellKnown(CommandLine& line) {
  line.argument("DOMAIN", line.runs<Options>(run).domain, "A bare domain, such as example.com").required();
  line.example("orvanta well-known example.com", "The skills that example.com publishes");
  line.example("orvanta install well-known:example.com/pdf", "Install one of them");
  line.explain(
      "Sites can publish skills at /.well-known/agent-skills/index.json. The index is only looked at; nothing is "
      "installed.");
}

}  // namespace orvanta::cli
