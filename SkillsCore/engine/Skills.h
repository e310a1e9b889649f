#pragma once

// The skills' records: reading them in the shapes that faces need, and the plain changes.

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "content/SkillMetadata.h"
#include "engine/Library.h"
#include "sources/Installer.h"

namespace orvanta {

// Where an installed skill came from, as it is stored.
struct SkillSource {
  SourceType type = SourceType::local;
  std::optional<std::string> ref;
  std::optional<std::string> resolved;
  std::optional<std::string> branch;
  std::optional<std::string> subpath;
  std::optional<std::string> revision;
};

class Skills {
 public:
  explicit Skills(Library& library) : library_(library) {}

  // Throws `notFound`.
  SkillRecord require(const std::string& id);
  SkillSummary summary(const std::string& id);
  // In the order of the records. A constant number of queries.
  std::vector<SkillSummary> summaries(const std::vector<SkillRecord>& records);

  std::vector<SkillFileEntry> files(const std::string& id);
  std::optional<std::string> fileText(const std::string& id, const std::string& relativePath);

  SkillSummary updateInfo(const std::string& id, const std::string& name,
                          const std::optional<std::string>& description);

  // The common end of every installation: the record for an installed folder, new or the one that the folder has
  // already, and the audit entry. To be called inside a transaction. A record that is there already keeps what
  // the user wrote into it and its source.
  struct Arrival {
    SkillSource source;
    std::optional<std::string> name;  // the user's choice; else the skill's own
    std::string action;               // for the audit log
    std::optional<std::string> tool;  // the agent concerned, for the audit log
  };
  SkillRecord storeInstalled(const InstalledDirectory& installed, const Arrival& arrival);

  // What a skill that is about to get new content says of itself in `folder`, which holds its old content. Where that
  // was changed by hand, or is gone, its record speaks for it.
  static SkillMeta metadataBefore(const SkillRecord& record, const std::filesystem::path& folder);
  // Name, description and fingerprint read anew from the library folder, and stored. Where the record differed from the
  // metadata `before`, the user changed it, and it stays.
  SkillRecord refreshRecordFromDisk(const SkillRecord& record, const SkillMeta& before);

 private:
  Library& library_;
};

}  // namespace orvanta
