#pragma once

// What the key stores of the systems have to offer to `Keychain`; each system has a source file of its own.

#include <chrono>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>

namespace orvanta::Keychain::Backend {

// The key store did not do what it was asked: why, as a sentence without capital and full stop, and the number that
// the system gives to the reason.
struct Failure : std::runtime_error {
  Failure(int number, const std::string& reason) : std::runtime_error(reason), status(number) {}
  int status;
};

// How long the key store is waited for.
struct Wait {
  std::chrono::milliseconds patience;
  std::stop_token stop;
};

// What the user can do about a failure.
std::string advice();

// All three throw `Failure`, or the reason why the key store could not even be asked.
std::optional<std::string> readItem(const std::string& account, const Wait& wait);
void writeItem(const std::string& account, const std::string& value, const Wait& wait);
// Whether there was one.
bool removeItem(const std::string& account, const Wait& wait);

}  // namespace orvanta::Keychain::Backend
