// The built-in agents. Folders are relative to the user's home. Several agents share a folder on purpose: what one of
// them holds there the others see too.

#include <array>

#include "agents/ToolAdapters.h"

namespace orvanta {

namespace {

struct Row {
  const char* key;
  const char* name;
  const char* skills;             // global skills folder
  const char* detect;             // its existence means that the agent is installed
  const char* scans = nullptr;    // further folder in which the agent looks for skills
  const char* project = nullptr;  // skills folder in a project, where it differs from the global one
  ToolCategory category = ToolCategory::coding;
  bool recursive = false;
};

// clang-format off
constexpr std::array<Row, 54> kRows{{
    {.key = "cursor", .name = "Cursor", .skills = ".cursor/skills", .detect = ".cursor"},
    {.key = "claude_code", .name = "Claude Code", .skills = ".claude/skills", .detect = ".claude"},
    {.key = "omp_agent", .name = "OMP Agent", .skills = ".omp/agent/skills", .detect = ".omp/agent", .project = ".omp/skills"},
    {.key = "codex", .name = "Codex", .skills = ".codex/skills", .detect = ".codex", .scans = ".agents/skills"},
    {.key = "grok", .name = "Grok", .skills = ".grok/skills", .detect = ".grok"},
    {.key = "opencode", .name = "OpenCode", .skills = ".config/opencode/skills", .detect = ".config/opencode", .project = ".opencode/skills"},
    {.key = "antigravity", .name = "Antigravity", .skills = ".gemini/antigravity/skills", .detect = ".gemini/antigravity"},
    {.key = "amp", .name = "Amp", .skills = ".config/agents/skills", .detect = ".config/agents"},
    {.key = "kilo_code", .name = "Kilo Code", .skills = ".kilocode/skills", .detect = ".kilocode"},
    {.key = "roo_code", .name = "Roo Code", .skills = ".roo/skills", .detect = ".roo"},
    {.key = "goose", .name = "Goose", .skills = ".config/goose/skills", .detect = ".config/goose"},
    {.key = "gemini_cli", .name = "Gemini CLI", .skills = ".gemini/skills", .detect = ".gemini"},
    {.key = "github_copilot", .name = "GitHub Copilot", .skills = ".copilot/skills", .detect = ".copilot", .scans = ".agents/skills"},
    {.key = "openclaw", .name = "OpenClaw", .skills = ".openclaw/skills", .detect = ".openclaw", .category = ToolCategory::lobster},
    {.key = "droid", .name = "Droid", .skills = ".factory/skills", .detect = ".factory"},
    {.key = "windsurf", .name = "Windsurf", .skills = ".codeium/windsurf/skills", .detect = ".codeium/windsurf"},
    {.key = "trae", .name = "TRAE IDE", .skills = ".trae/skills", .detect = ".trae"},
    {.key = "cline", .name = "Cline", .skills = ".agents/skills", .detect = ".cline"},
    {.key = "deepagents", .name = "Deep Agents", .skills = ".deepagents/agent/skills", .detect = ".deepagents"},
    {.key = "firebender", .name = "Firebender", .skills = ".firebender/skills", .detect = ".firebender"},
    {.key = "kimi", .name = "Kimi Code CLI", .skills = ".kimi-code/skills", .detect = ".kimi-code"},
    {.key = "replit", .name = "Replit", .skills = ".config/agents/skills", .detect = ".replit"},
    {.key = "warp", .name = "Warp", .skills = ".agents/skills", .detect = ".warp"},
    {.key = "augment", .name = "Augment", .skills = ".augment/skills", .detect = ".augment"},
    {.key = "bob", .name = "IBM Bob", .skills = ".bob/skills", .detect = ".bob"},
    {.key = "codebuddy", .name = "CodeBuddy", .skills = ".codebuddy/skills", .detect = ".codebuddy"},
    {.key = "command_code", .name = "Command Code", .skills = ".commandcode/skills", .detect = ".commandcode"},
    {.key = "continue", .name = "Continue", .skills = ".continue/skills", .detect = ".continue"},
    {.key = "cortex", .name = "Cortex Code", .skills = ".snowflake/cortex/skills", .detect = ".snowflake/cortex"},
    {.key = "crush", .name = "Crush", .skills = ".config/crush/skills", .detect = ".config/crush"},
    {.key = "iflow", .name = "iFlow CLI", .skills = ".iflow/skills", .detect = ".iflow"},
    {.key = "junie", .name = "Junie", .skills = ".junie/skills", .detect = ".junie"},
    {.key = "kiro", .name = "Kiro CLI", .skills = ".kiro/skills", .detect = ".kiro"},
    {.key = "kode", .name = "Kode", .skills = ".kode/skills", .detect = ".kode"},
    {.key = "mcpjam", .name = "MCPJam", .skills = ".mcpjam/skills", .detect = ".mcpjam"},
    {.key = "mistral_vibe", .name = "Mistral Vibe", .skills = ".vibe/skills", .detect = ".vibe"},
    {.key = "mux", .name = "Mux", .skills = ".mux/skills", .detect = ".mux"},
    {.key = "neovate", .name = "Neovate", .skills = ".neovate/skills", .detect = ".neovate"},
    {.key = "openhands", .name = "OpenHands", .skills = ".openhands/skills", .detect = ".openhands"},
    {.key = "pi", .name = "Pi", .skills = ".pi/agent/skills", .detect = ".pi/agent", .scans = ".agents/skills", .project = ".pi/skills"},
    {.key = "pochi", .name = "Pochi", .skills = ".pochi/skills", .detect = ".pochi"},
    {.key = "qoder", .name = "Qoder", .skills = ".qoder/skills", .detect = ".qoder"},
    {.key = "qwen_code", .name = "Qwen Code", .skills = ".qwen/skills", .detect = ".qwen"},
    {.key = "trae_cn", .name = "TRAE CN", .skills = ".trae-cn/skills", .detect = ".trae-cn"},
    {.key = "zencoder", .name = "Zencoder", .skills = ".zencoder/skills", .detect = ".zencoder"},
    {.key = "zcode", .name = "ZCode", .skills = ".zcode/skills", .detect = ".zcode"},
    {.key = "adal", .name = "AdaL", .skills = ".adal/skills", .detect = ".adal"},
    {.key = "hermes", .name = "Hermes Agent", .skills = ".hermes/skills", .detect = ".hermes", .category = ToolCategory::lobster, .recursive = true},
    {.key = "qclaw", .name = "QClaw", .skills = ".qclaw/skills", .detect = ".qclaw", .category = ToolCategory::lobster},
    {.key = "easyclaw", .name = "EasyClaw", .skills = ".easyclaw/skills", .detect = ".easyclaw", .category = ToolCategory::lobster},
    {.key = "autoclaw", .name = "AutoClaw", .skills = ".openclaw-autoclaw/skills", .detect = ".openclaw-autoclaw", .category = ToolCategory::lobster},
    {.key = "workbuddy", .name = "WorkBuddy", .skills = ".workbuddy/skills", .detect = ".workbuddy", .category = ToolCategory::lobster},
    {.key = "deepseek_harness", .name = "DeepSeek Harness", .skills = ".dsh/skills", .detect = ".dsh", .scans = ".agents/skills"},
    {.key = "gitlab_duo", .name = "GitLab Duo", .skills = ".gitlab/duo/skills", .detect = ".gitlab/duo", .scans = ".agents/skills", .project = ".agents/skills"},
}};
// clang-format on

ToolAdapter adapterFrom(const Row& row) {
  ToolAdapter adapter;
  adapter.key = row.key;
  adapter.displayName = row.name;
  adapter.relativeSkillsDir = row.skills;
  adapter.relativeDetectDir = row.detect;
  if (row.scans != nullptr) adapter.additionalScanDirs.emplace_back(row.scans);
  if (row.project != nullptr) adapter.projectRelativeSkillsDirOverride = row.project;
  adapter.recursiveScan = row.recursive;
  adapter.category = row.category;
  return adapter;
}

}  // namespace

const std::vector<ToolAdapter>& ToolAdapters::builtin() {
  static const std::vector<ToolAdapter> adapters = [] {
    std::vector<ToolAdapter> all;
    all.reserve(kRows.size());
    for (const auto& row : kRows) all.push_back(adapterFrom(row));
    return all;
  }();
  return adapters;
}

}  // namespace orvanta
