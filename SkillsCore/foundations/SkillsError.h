#pragma once

// The one error type of the core. Every fallible operation throws it; its message is complete and meant for a person:
// what happened, to what, and what to do about it.

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace orvanta {

class SkillsError : public std::runtime_error {
 public:
  enum class Kind { invalidInput, notFound, conflict, io, git, network, database, refused };

  SkillsError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}

  static SkillsError invalidInput(const std::string& message) { return {Kind::invalidInput, message}; }
  static SkillsError notFound(const std::string& message) { return {Kind::notFound, message}; }
  static SkillsError conflict(const std::string& message) { return {Kind::conflict, message}; }
  static SkillsError io(const std::string& message) { return {Kind::io, message}; }
  static SkillsError git(const std::string& message) { return {Kind::git, message}; }
  static SkillsError network(const std::string& message) { return {Kind::network, message}; }
  static SkillsError database(const std::string& message) { return {Kind::database, message}; }
  static SkillsError refused(const std::string& message) { return {Kind::refused, message}; }

  // An `io` error for a failed system call: "WHAT: the system's text for ERROR".
  static SkillsError system(const std::string& what, int error);

  [[nodiscard]] Kind kind() const { return kind_; }
  [[nodiscard]] std::string message() const { return what(); }

  friend bool operator==(const SkillsError& a, const SkillsError& b) {
    return a.kind_ == b.kind_ && std::string_view(a.what()) == b.what();
  }

 private:
  Kind kind_;
};

// The name of a kind as it is written in logs and JSON, equal to its spelling in the code.
std::string_view rawValue(SkillsError::Kind kind);

}  // namespace orvanta
