#include "platform/Keychain.h"

#include <exception>

#include <fmt/format.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/KeychainBackend.h"

namespace orvanta::Keychain {

std::optional<std::string> read(const std::string& account, std::chrono::milliseconds patience) {
  try {
    auto text = Backend::readItem(account, patience);
    return text && Text::isValidUTF8(*text) ? text : std::nullopt;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

void write(const std::string& account, const std::string& value, std::chrono::milliseconds patience) {
  if (!Text::isValidUTF8(value) || value.find('\0') != std::string::npos) {
    throw SkillsError::invalidInput("What is to be stored for " + account + " is no text. Check what you entered.");
  }
  try {
    Backend::writeItem(account, value, patience);
  } catch (const Backend::Failure& failure) {
    throw SkillsError::io(
        fmt::format("Keychain write failed (OSStatus {}): {}. {}", failure.status, failure.what(), Backend::advice()));
  }
}

void remove(const std::string& account, std::chrono::milliseconds patience) {
  try {
    Backend::removeItem(account, patience);
  } catch (const std::exception&) {
    return;
  }
}

std::optional<std::string> githubToken() { return read(githubTokenAccount); }

void setGithubToken(const std::optional<std::string>& token) {
  const std::string trimmed(Text::trim(token.value_or("")));
  if (trimmed.empty()) {
    remove(githubTokenAccount);
  } else {
    write(githubTokenAccount, trimmed);
  }
}

}  // namespace orvanta::Keychain
