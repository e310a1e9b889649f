// The library as a whole: where it is, and how it is.

#include "engine/SkillsEngineState.h"
#include "platform/Keychain.h"

namespace orvanta {

RelocationReport SkillsEngine::relocateLibrary(const std::filesystem::path& destination,
                                               const OperationContext& context) {
  const State::ChangeTurn turn(*state_);
  auto report = state_->components.relocation.move(destination, context);
  state_->pathsInForce.change(state_->library.paths);
  state_->openDatabase = FS::identity(state_->library.paths.database());
  return report;
}

Plan SkillsEngine::planRelocation(const std::filesystem::path& destination) {
  const Turn turn(state_->mutex);
  return state_->components.relocation.plan(destination);
}

Paths SkillsEngine::settledPaths(const Paths& paths, const UserFolders& user) { return settledLibrary(paths, user); }

std::filesystem::path SkillsEngine::exportDiagnostics(const OperationContext& context) {
  const bool hasToken = Keychain::githubToken(context.stop).has_value();  // may have to wait for its user
  const Turn turn(state_->mutex);
  state_->requireInPlace();
  return state_->components.diagnostics.write(hasToken);
}

}  // namespace orvanta
