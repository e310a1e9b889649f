#include <algorithm>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "cli/commands/Agents.h"
#include "cli/commands/Common.h"

namespace orvanta::cli {

namespace {

struct AgentOptions {
  std::string agent;
};

struct ListOptions {
  bool installed = false;
};

struct OrderOptions {
  std::vector<std::string> agents;
};

Cell stateOf(const ToolInfo& tool) {
  if (!tool.installed) return {"not installed", Style::faint};
  if (!tool.enabled) return {"switched off", Style::warning};
  return {"active", Style::good};
}

void writeTools(Session& session, const std::vector<ToolInfo>& tools) {
  if (session.json()) return writeJsonArray(session.out().stream(), tools);
  Table table({{"KEY"}, {"NAME", true}, {"STATE"}, {"SKILLS", false, true}, {"FOLDER", true}});
  for (const ToolInfo& tool : tools) {
    table.add({{tool.key, tool.isActive() ? Style::strong : Style::plain},
               tool.displayName,
               stateOf(tool),
               fmt::format("{}", tool.deployedCount),
               shortPath(tool.skillsDir, session.user())});
  }
  table.write(session.out());
}

ExitStatus list(Session& session, const ListOptions& options) {
  auto tools = session.engine().tools();
  if (options.installed) {
    tools.erase(std::remove_if(tools.begin(), tools.end(), [](const auto& tool) { return !tool.installed; }),
                tools.end());
  }
  writeTools(session, tools);
  if (tools.empty() && !session.json()) {
    session.out().line("No agent is installed. 'orvanta agent add' adds one of your own.");
  }
  return ExitStatus::done;
}

Cell kindOf(const AgentSkillEntry& entry) {
  switch (entry.kind) {
    case AgentSkillEntry::Kind::managed:
      return entry.mode ? fmt::format("managed {}", rawValue(*entry.mode)) : std::string("managed");
    case AgentSkillEntry::Kind::unmanagedInLibrary: return {"own, in library", Style::faint};
    case AgentSkillEntry::Kind::unmanaged: return {"own", Style::faint};
    case AgentSkillEntry::Kind::missing: return {"missing", Style::bad};
  }
  return "";
}

ExitStatus show(Session& session, const AgentOptions& options) {
  const std::string key = agentNamed(session.engine(), options.agent);
  const ToolInfo tool = toolInfo(session.engine(), key);
  const auto entries = session.engine().agentEntries(key);
  if (session.json()) {
    writeJson(session.out().stream(), {{"tool", tool}, {"entries", entries}});
    return ExitStatus::done;
  }
  const Terminal& out = session.out();
  const Cell state = stateOf(tool);
  out.line(fmt::format("{}  ({}, {})", out.styled(tool.displayName, Style::strong), tool.key,
                       out.styled(state.text, state.style)));
  out.line("  Folder    " + shortPath(tool.skillsDir, session.user()));
  if (!tool.projectRelativeSkillsDir.empty()) out.line("  Projects  " + tool.projectRelativeSkillsDir);
  out.line("");
  Table table({{"SKILL", true}, {"KIND"}, {"PATH", true}, {"DESCRIPTION", true}});
  for (const AgentSkillEntry& entry : entries) {
    table.add({{entry.name, Style::strong}, kindOf(entry), entry.relativePath, entry.description.value_or("")});
  }
  table.write(out);
  if (entries.empty()) out.line("There is no skill in its folder.");
  return ExitStatus::done;
}

ExitStatus setEnabled(Session& session, const AgentOptions& options, bool enabled) {
  const std::string key = agentNamed(session.engine(), options.agent);
  session.change([&](const OperationContext&) { session.engine().setToolEnabled(key, enabled); });
  return showTool(session, key, enabled ? "is switched on" : "is switched off; what is deployed to it stays");
}

ExitStatus enable(Session& session, const AgentOptions& options) { return setEnabled(session, options, true); }

ExitStatus disable(Session& session, const AgentOptions& options) { return setEnabled(session, options, false); }

ExitStatus order(Session& session, const OrderOptions& options) {
  const auto keys = agentsNamed(session.engine(), options.agents);
  session.change([&](const OperationContext&) { session.engine().setToolOrder(keys); });
  writeTools(session, session.engine().tools());
  return ExitStatus::done;
}

}  // namespace

ToolInfo toolInfo(SkillsEngine& engine, const std::string& key) {
  const auto tools = engine.tools();
  const auto found = std::find_if(tools.begin(), tools.end(), [&](const auto& tool) { return tool.key == key; });
  return found == tools.end() ? ToolInfo{} : *found;
}

ExitStatus showTool(Session& session, const std::string& key, const std::string& change) {
  const ToolInfo tool = toolInfo(session.engine(), key);
  if (session.json()) {
    writeJson(session.out().stream(), tool);
  } else {
    session.out().line(fmt::format("{} {}.", inQuotes(tool.displayName), change));
  }
  return ExitStatus::done;
}

void setUpAgentList(CommandLine& line) {
  ListOptions& options = line.runs<ListOptions>(list);
  line.flag("--installed", options.installed, "Only agents that are installed");
  line.example("orvanta agent list --installed", "The agents on this machine and their folders");
}

void setUpAgentShow(CommandLine& line) {
  agentArgument(line, line.runs<AgentOptions>(show).agent);
  line.example("orvanta agent show cursor", "What lies in Cursor's folder, and what of it is managed");
}

void setUpAgentEnable(CommandLine& line) {
  agentArgument(line, line.runs<AgentOptions>(enable).agent);
  line.example("orvanta agent enable cursor", "Deploy to it again");
}

void setUpAgentDisable(CommandLine& line) {
  agentArgument(line, line.runs<AgentOptions>(disable).agent);
  line.example("orvanta agent disable cursor", "Nothing is deployed to it until it is enabled");
}

void setUpAgentOrder(CommandLine& line) {
  OrderOptions& options = line.runs<OrderOptions>(order);
  line.argument("AGENT", options.agents, "The agents that come first, in this order", Completes::agents).required();
  line.example("orvanta agent order cursor claude_code", "List these two before all others");
}

}  // namespace orvanta::cli
