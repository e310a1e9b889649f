// What git says of a repository that strangers filled: names of branches, commits and files. The first byte of the
// input chooses the question, the rest is the answer to every command.

#include "foundations/ModelsJSON.h"
#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"
#include "sources/GitBackup.h"

namespace {

using namespace orvanta;  // NOLINT(google-build-using-namespace)
using fuzzing::require;

namespace fs = std::filesystem;

fs::path answerFile() { return fuzzing::scratchFolder() / "answer"; }

// A git that has one answer.
GitSettings talkingGit() {
  const auto program = fuzzing::scratchFolder() / "git";
  fuzzing::writeFile(program, "#!/bin/sh\nexec cat '" + answerFile().string() + "'\n");
  fs::permissions(program, fs::perms::owner_all);
  return {.executable = program, .temp = fuzzing::scratchFolder()};
}

void checkShown(const std::vector<BackupCommit>& commits) {
  for (const auto& commit : commits) {
    require(Text::isValidUTF8(commit.message) && commit.message.find('\n') == std::string::npos);
    require(Json::parse(jsonText(Json(commit))).at("message") == commit.message);
  }
}

void ask(char question, const GitClient& git, const GitBackup& backup, const std::string& answer) {
  switch (question) {
    case 'r': {
      const auto id = git.remoteHead("https://example.com/a.git", "main", {});
      require(id.find('\t') == std::string::npos && Text::repairUTF8(answer).find(id) != std::string::npos);
      break;
    }
    case 'h': checkShown(backup.history(100, {})); break;
    case 's': {
      const auto status = backup.status({});
      if (status.lastCommit) checkShown({*status.lastCommit});
      require(!status.remoteURL || Text::maskCredentials(*status.remoteURL) == *status.remoteURL);
      break;
    }
    case 't':
      for (const auto& item : backup.tree("HEAD", {})) require(answer.find("\t" + item.path) != std::string::npos);
      break;
    default:
      for (const auto& folder : backup.changedFolders("a", "b", {})) require(folder.find('/') == std::string::npos);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const GitSettings settings = talkingGit();
  static const auto library = fuzzing::scratchFolder() / "library";
  fs::create_directories(library / ".git");
  if (size == 0) return 0;
  const std::string answer(fuzzing::textOf(data, size).substr(1));
  fuzzing::writeFile(answerFile(), answer);
  fuzzing::allowing(SkillsError::Kind::git, [&] {
    ask(static_cast<char>(data[0]), GitClient(settings), GitBackup(library, settings), answer);
  });
  return 0;
}
