#include "foundations/SkillsError.h"

#include <system_error>

namespace orvanta {

SkillsError SkillsError::system(const std::string& what, int error) {
  return io(what + ": " + std::generic_category().message(error));
}

std::string_view rawValue(SkillsError::Kind kind) {
  switch (kind) {
    case SkillsError::Kind::invalidInput: return "invalidInput";
    case SkillsError::Kind::notFound: return "notFound";
    case SkillsError::Kind::conflict: return "conflict";
    case SkillsError::Kind::io: return "io";
    case SkillsError::Kind::git: return "git";
    case SkillsError::Kind::network: return "network";
    case SkillsError::Kind::database: return "database";
    case SkillsError::Kind::refused: return "refused";
  }
  return "io";
}

}  // namespace orvanta
