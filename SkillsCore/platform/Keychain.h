#pragma once

// Secrets of the user in the system's key store: the login keychain on macOS, elsewhere the Secret Service of the
// desktop (GNOME Keyring, KWallet and others). They are never kept anywhere else, and no message of ours holds one.
//
// The key store is another program, which may have to ask the user to unlock it. No call waits longer than `patience`;
// on macOS it is the system that ends its questions. Any thread may call.

#include <chrono>
#include <optional>
#include <string>

namespace orvanta::Keychain {

// What every item of ours is stored under, beside its account.
inline constexpr auto service = "com.orvanta.native";
inline constexpr auto githubTokenAccount = "github-token";

// Long enough to type a password into the key store's own window.
inline constexpr std::chrono::milliseconds defaultPatience = std::chrono::seconds(30);

// The item's text; none when there is no such item, no key store, or it does not answer or cannot be unlocked.
[[nodiscard]] std::optional<std::string> read(const std::string& account,
                                              std::chrono::milliseconds patience = defaultPatience);

// Stores the item or replaces its text. Throws `io` ("Keychain write failed (OSStatus …): …") with the reason and what
// to do, and `invalidInput` for a text that is not UTF-8 or holds a NUL; what was stored before then stays.
void write(const std::string& account, const std::string& value, std::chrono::milliseconds patience = defaultPatience);

// Removes the item; one that is missing is fine, and so is a key store that does not answer.
void remove(const std::string& account, std::chrono::milliseconds patience = defaultPatience);

[[nodiscard]] std::optional<std::string> githubToken();

// Stores the token without white space around it; one that is then empty, or none, removes it. Throws as `write` does.
void setGithubToken(const std::optional<std::string>& token);

}  // namespace orvanta::Keychain
