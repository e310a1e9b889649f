#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "foundations/Text.h"

namespace orvanta::cli {

namespace {

constexpr std::size_t kFingerprintShown = 8;

std::string agentsOf(const DiscoveredGroup& group) {
  std::vector<std::string> agents;
  for (const DiscoveredLocation& location : group.locations) agents.push_back(location.tool);
  return Text::join(agents, ", ");
}

ExitStatus run(Session& session) {
  const auto groups =
      session.change([&](const OperationContext& context) { return session.engine().discover(context); });
  if (session.wasInterrupted()) return ExitStatus::interrupted;
  if (session.json()) {
    writeJsonArray(session.out().stream(), groups);
    return ExitStatus::done;
  }
  if (groups.empty()) {
    session.out().line("The library holds every skill that lies in the folders of active agents.");
    return ExitStatus::done;
  }
  Table table({{"NAME", true}, {"FINGERPRINT"}, {"AGENTS", true}, {"FOUND AT", true}});
  for (const DiscoveredGroup& group : groups) {
    const std::string first = group.locations.empty() ? "" : group.locations.front().foundPath;
    table.add({{group.name, Style::strong},
               group.fingerprint.substr(0, kFingerprintShown),
               agentsOf(group),
               shortPath(first, session.user())});
  }
  table.write(session.out());
  session.note("Next: orvanta import --discovered NAME…   (--adopt lets the library manage the originals too)");
  return ExitStatus::done;
}

}  // namespace

void setUpDiscover(CommandLine& line) {
  line.runs(run);
  line.example("orvanta discover", "What lies in agents' folders and not in the library");
  line.explain(
      "Folders with the same content and name are one line. Nothing is changed; 'orvanta import' copies them.");
}

}  // namespace orvanta::cli
