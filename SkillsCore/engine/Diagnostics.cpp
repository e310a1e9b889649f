#include "engine/Diagnostics.h"

#include <fmt/format.h>

#include "engine/AgentSettings.h"
#include "files/FS.h"
#include "foundations/Clock.h"
#include "foundations/Text.h"
#include "platform/Host.h"
#include "sources/GitClient.h"

namespace orvanta {

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kAuditEntries = 100;

// Every line goes through here: names and messages come from strangers, and addresses can hold passwords.
class Lines {
 public:
  void add(const std::string& line) { text_ += Text::singleLine(Text::maskCredentials(line)) + '\n'; }
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

std::string lineOf(const AuditEntry& entry) {
  std::string line = fmt::format("{} {} {}", iso8601(entry.timestamp), entry.action, entry.success ? "ok" : "FAIL");
  if (entry.skillName) line += " " + *entry.skillName;
  if (entry.detail) line += " " + *entry.detail;
  return line;
}

std::string lineOf(const ToolInfo& agent) {
  return fmt::format(" - {} installed={} enabled={} deployed={} dir={}", agent.displayName, agent.installed,
                     agent.enabled, agent.deployedCount, agent.skillsDir);
}

}  // namespace

fs::path Diagnostics::write(bool hasGithubToken) {
  FS::createDirectories(library_.paths.logs());
  fs::path file = FS::freeStampedFile(library_.paths.logs(), "diagnostics-", ".txt");
  FS::writeAtomically(file, report(hasGithubToken));
  return file;
}

std::string Diagnostics::report(bool hasGithubToken) {
  SkillStore& store = library_.store;
  const GitSettings git;
  const std::string proxy = store.setting("proxy_url").value_or("");
  const auto skills = store.allSkills();
  Lines lines;
  lines.add("Orvanta (native) diagnostics");
  lines.add("Date: " + iso8601(nowMillis()));
  lines.add(systemDescription());
  lines.add(fmt::format("Library: {} (relocated: {})", fsPath(library_.paths.base()),
                        library_.paths.isRelocated(library_.user)));
  lines.add(fmt::format("Schema: {}", store.connection().userVersion()));
  lines.add(fmt::format("Git: {} available={}", git.executable.string(), GitClient(git).isAvailable()));
  lines.add("Proxy: " + (proxy.empty() ? "none" : proxy));
  lines.add(std::string("GitHub token: ") + (hasGithubToken ? "set" : "none"));
  lines.add(fmt::format("Skills: {}", skills.size()));
  for (const auto& skill : skills) {
    lines.add(fmt::format(" - {} [{}, {}]", skill.name, rawValue(skill.sourceType), rawValue(skill.updateStatus)));
  }
  lines.add("Agents:");
  for (const auto& agent : AgentSettings(library_).tools()) lines.add(lineOf(agent));
  lines.add("Recent audit:");
  for (const auto& entry : store.auditEntries(kAuditEntries, 0)) lines.add(lineOf(entry));
  return lines.text();
}

}  // namespace orvanta
