// The community directory, as the engine offers it. No turn is held while the network is waited for.

#include "engine/Market.h"
#include "engine/SkillsEngineState.h"

namespace orvanta {

PlazzaAPI SkillsEngine::plazza(const OperationContext& context) {
  return {httpSettings(context), setting("plazza_url").value_or("")};
}

std::vector<PlazzaSkill> SkillsEngine::answerTo(const MarketQuestion& question, bool forceRefresh,
                                                const OperationContext& context) {
  if (!forceRefresh) {
    const Turn turn(state_->mutex);
    if (auto kept = state_->components.market.kept(question)) return std::move(*kept);
  }
  auto answer = question.ask(context);
  const Turn turn(state_->mutex);
  state_->components.market.keep(question, answer);
  return answer;
}

std::vector<PlazzaSkill> SkillsEngine::leaderboard(LeaderboardKind kind, bool forceRefresh,
                                                   const OperationContext& context) {
  return answerTo(MarketQuestion::leaderboard(plazza(context), kind), forceRefresh, context);
}

std::vector<PlazzaSkill> SkillsEngine::searchMarket(const std::string& query, std::size_t limit,
                                                    const OperationContext& context) {
  auto skills = answerTo(MarketQuestion::search(plazza(context), query), false, context);
  if (skills.size() > limit) skills.resize(limit);
  return skills;
}

void SkillsEngine::clearMarketCache() {
  const Turn turn(state_->mutex);
  state_->components.market.forgetAll();
}

SkillSummary SkillsEngine::installFromPlazza(const std::string& source, const std::string& skillId,
                                             const std::optional<std::string>& name, const OperationContext& context) {
  PreparedInstall prepared;
  const ListedSkill skill(gitSettings(context), source, skillId);
  skill.withRequests(name, context, [&](std::vector<InstallRequest> requests) {
    prepared = Installation::prepare(state_->paths(), std::move(requests), context);
  });
  const State::ChangeTurn turn(*state_);
  return state_->components.installation.settleOne(prepared);
}

Plan SkillsEngine::planInstallFromPlazza(const std::string& source, const std::string& skillId,
                                         const std::optional<std::string>& name, const OperationContext& context) {
  Plan plan;
  const ListedSkill skill(gitSettings(context), source, skillId);
  skill.withRequests(name, context, [&](const std::vector<InstallRequest>& requests) {
    const Turn turn(state_->mutex);
    plan = state_->components.installation.plan(requests);
  });
  return plan;
}

}  // namespace orvanta
