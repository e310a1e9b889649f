#include "platform/Keychain.h"

#include <exception>

#include <fmt/format.h>

#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/KeychainBackend.h"

namespace orvanta::Keychain {

namespace {

// Stands for a reason to which the key store gives no number.
constexpr int unknownStatus = -1;

SkillsError writeFailure(int status, const std::exception& reason) {
  return SkillsError::io(
      fmt::format("Keychain write failed (OSStatus {}): {}. {}", status, reason.what(), Backend::advice()));
}

}  // namespace

std::optional<std::string> read(const std::string& account, std::chrono::milliseconds patience,
                                const std::stop_token& stop) {
  try {
    auto text = Backend::readItem(account, {patience, stop});
    return text && Text::isValidUTF8(*text) ? text : std::nullopt;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

void write(const std::string& account, const std::string& value, std::chrono::milliseconds patience,
           const std::stop_token& stop) {
  if (!Text::isValidUTF8(value) || value.find('\0') != std::string::npos) {
    throw SkillsError::invalidInput("What is to be stored for " + account + " is no text. Check what you entered.");
  }
  try {
    Backend::writeItem(account, value, {patience, stop});
  } catch (const Backend::Failure& failure) {
    throw writeFailure(failure.status, failure);
  } catch (const std::exception& error) {
    throw writeFailure(unknownStatus, error);
  }
}

bool remove(const std::string& account, std::chrono::milliseconds patience, const std::stop_token& stop) {
  try {
    return Backend::removeItem(account, {patience, stop});
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<std::string> githubToken(const std::stop_token& stop) {
  return read(githubTokenAccount, defaultPatience, stop);
}

bool setGithubToken(const std::optional<std::string>& token, const std::stop_token& stop) {
  const std::string trimmed(Text::trim(token.value_or("")));
  if (trimmed.empty()) return remove(githubTokenAccount, defaultPatience, stop);
  write(githubTokenAccount, trimmed, defaultPatience, stop);
  return true;
}

}  // namespace orvanta::Keychain
