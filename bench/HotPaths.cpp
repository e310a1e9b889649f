// The hot paths of the core, one by one, without the start of a process. "per_skill" is the time that one skill takes.

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "agents/ToolAdapters.h"
#include "bench/SampleLibrary.h"
#include "content/ContentHash.h"
#include "content/SkillMetadata.h"
#include "engine/SkillsEngine.h"
#include "files/FS.h"
#include "files/TemporaryFolder.h"
#include "files/TreeCopy.h"
#include "foundations/Uuid.h"
#include "persistence/SkillStore.h"

namespace orvanta::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kAgents = 10;
constexpr std::size_t kManySkills = 1000;

// `skills`: how many one iteration handles.
void countSkills(benchmark::State& state, std::size_t skills) {
  using benchmark::Counter;
  state.counters["per_skill"] =
      Counter(static_cast<double>(skills), Counter::kIsIterationInvariantRate | Counter::kInvert);
}

// A user of an empty library, with some agents.
struct SampleUser {
  explicit SampleUser(std::size_t agentCount = kAgents) {
    for (std::size_t i = 0; i < agentCount; ++i) {
      const ToolAdapter& agent = ToolAdapters::builtin()[i];
      FS::createDirectories(folders.home / agent.relativeDetectDir);
      agents.push_back(agent.key);
    }
  }

  const TemporaryFolder root{fs::temp_directory_path(), "orvanta-bench-"};
  const UserFolders folders{root.path() / "home", root.path() / "home" / ".config", root.path() / "temp"};
  const Paths paths{root.path() / "library"};
  std::vector<std::string> agents;
};

const fs::path& sampleSkills() {
  static const TemporaryFolder folder(fs::temp_directory_path(), "orvanta-bench-");
  static const fs::path skills = [] {
    makeSampleLibrary(folder.path() / "skills", kManySkills);
    return folder.path() / "skills";
  }();
  return skills;
}

// ── Content ──

void hashLibrary(benchmark::State& state) {
  const auto skills = FS::children(sampleSkills());
  for (auto _ : state) benchmark::DoNotOptimize(ContentHash::hashDirectories(skills));
  countSkills(state, skills.size());
}
BENCHMARK(hashLibrary)->Unit(benchmark::kMillisecond)->UseRealTime();

void hashSkill(benchmark::State& state) {
  const fs::path skill = sampleSkills() / "skill-00000";
  for (auto _ : state) benchmark::DoNotOptimize(ContentHash::hashDirectory(skill));
  countSkills(state, 1);
}
BENCHMARK(hashSkill)->Unit(benchmark::kMicrosecond);

void parseFrontMatter(benchmark::State& state) {
  const std::string description = "Compare two reports before each release and write a summary of the errors.";
  const std::string text = frontMatter(static_cast<std::size_t>(state.range(0)), "report-compare", description);
  for (auto _ : state) benchmark::DoNotOptimize(SkillMetadata::parseMeta(text));
  countSkills(state, 1);
}
BENCHMARK(parseFrontMatter)->ArgName("style")->DenseRange(0, kFrontMatterStyles - 1);

void readMarkerFiles(benchmark::State& state) {
  const auto skills = FS::children(sampleSkills());
  for (auto _ : state) {
    for (const fs::path& skill : skills) benchmark::DoNotOptimize(SkillMetadata::parseSkillMd(skill));
  }
  countSkills(state, skills.size());
}
BENCHMARK(readMarkerFiles)->Unit(benchmark::kMillisecond);

void copySkill(benchmark::State& state) {
  const fs::path skill = sampleSkills() / "skill-00000";
  const TemporaryFolder folder(fs::temp_directory_path(), "orvanta-bench-");
  const fs::path copy = folder.path() / "copy";
  for (auto _ : state) {
    FS::copySkillTree(skill, copy);
    state.PauseTiming();
    FS::removeAny(copy);
    state.ResumeTiming();
  }
  countSkills(state, 1);
}
BENCHMARK(copySkill)->Unit(benchmark::kMicrosecond);

// ── Records ──

void recordSkill(SkillStore& store, const SampleUser& user, std::size_t number) {
  SkillRecord skill;
  skill.id = newUuid();
  skill.name = fmt::format("skill-{:05}", number);
  skill.description = "Compare two reports before each release and write a summary of the errors.";
  skill.sourceRef = "/somewhere/" + skill.name;
  skill.centralPath = (user.paths.skills() / skill.name).string();
  skill.contentHash = ContentHash::sha256Hex(skill.name);
  store.insertSkill(skill);
  for (const std::string& agent : user.agents) {
    SkillTarget target;
    target.id = newUuid();
    target.skillId = skill.id;
    target.tool = agent;
    target.targetPath = (user.folders.home / agent / skill.name).string();
    target.sourceHash = skill.contentHash;
    store.upsertTarget(target);
  }
}

// Records of skills and deployments that are not on the disk: enough for what only reads records.
void recordLibrary(const SampleUser& user, std::size_t skills) {
  SkillStore store(user.paths.database());
  store.connection().transaction([&] {
    for (std::size_t i = 0; i < skills; ++i) recordSkill(store, user, i);
  });
}

const SampleUser& recordedLibrary(std::int64_t skills) {
  static std::map<std::int64_t, std::unique_ptr<SampleUser>> users;
  auto& user = users[skills];
  if (!user) {
    user = std::make_unique<SampleUser>();
    recordLibrary(*user, static_cast<std::size_t>(skills));
  }
  return *user;
}

void openLibrary(benchmark::State& state) {
  const SampleUser& user = recordedLibrary(state.range(0));
  for (auto _ : state) SkillsEngine(user.paths, user.folders);
}
BENCHMARK(openLibrary)->ArgName("skills")->Arg(1000)->Arg(10'000)->Unit(benchmark::kMicrosecond);

void readSkills(benchmark::State& state) {
  SkillStore store(recordedLibrary(state.range(0)).paths.database());
  for (auto _ : state) benchmark::DoNotOptimize(store.allSkills());
  countSkills(state, static_cast<std::size_t>(state.range(0)));
}
BENCHMARK(readSkills)->ArgName("skills")->Arg(1000)->Arg(10'000)->Unit(benchmark::kMillisecond);

void readSummaries(benchmark::State& state) {
  const SampleUser& user = recordedLibrary(state.range(0));
  SkillsEngine engine(user.paths, user.folders);
  for (auto _ : state) benchmark::DoNotOptimize(engine.summaries(engine.skills()));
  countSkills(state, static_cast<std::size_t>(state.range(0)));
}
BENCHMARK(readSummaries)->ArgName("skills")->Arg(1000)->Arg(10'000)->Unit(benchmark::kMillisecond);

// 100 presets of 1,000 skills each, all of which 54 agents hold; one switch in ten members is off.
void countPresets(benchmark::State& state) {
  const SampleUser user(ToolAdapters::builtin().size());
  recordLibrary(user, kManySkills);
  constexpr int kPresets = 100;
  SkillsEngine engine(user.paths, user.folders);
  std::vector<std::string> ids;
  for (const SkillRecord& skill : engine.skills()) ids.push_back(skill.id);
  for (int i = 0; i < kPresets; ++i) {
    const Preset preset = engine.createPreset(fmt::format("preset {}", i), {}, {});
    engine.setPresetSkills(preset.id, ids);
    SkillStore store(user.paths.database());
    store.connection().transaction([&] {
      for (std::size_t k = 0; k < ids.size(); k += 10)
        store.setPresetSkillTool(preset.id, ids[k], user.agents[0], false);
    });
  }
  for (auto _ : state) benchmark::DoNotOptimize(engine.presetActivations());
  countSkills(state, ids.size() * kPresets);
}
BENCHMARK(countPresets)->Unit(benchmark::kMillisecond);

// ── Deployment ──

// With nothing to do: what every later `deploy` of the same skills costs.
void deployAgain(benchmark::State& state) {
  const SampleUser user;
  SkillsEngine engine(user.paths, user.folders);
  engine.installFolder(sampleSkills(), 1, {});
  std::vector<std::string> ids;
  for (const SkillRecord& skill : engine.skills()) ids.push_back(skill.id);
  engine.deploy(ids, user.agents, false, {});
  for (auto _ : state) benchmark::DoNotOptimize(engine.deploy(ids, user.agents, false, {}));
  countSkills(state, ids.size());
}
BENCHMARK(deployAgain)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace orvanta::bench
