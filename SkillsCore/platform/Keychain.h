#pragma once

// Secrets of the user in the system's key store: the login keychain on macOS, elsewhere the Secret Service of the
// desktop (GNOME Keyring, KWallet and others). They are never kept anywhere else, and no message of ours holds one.
//
// The key store is another program, which may have to ask the user to unlock it. No call waits longer than `patience`,
// and a requested stop ends the wait within a second; on macOS it is the system that ends its questions. Any thread may
// call.

#include <chrono>
#include <optional>
#include <stop_token>
#include <string>

namespace orvanta::Keychain {

// What every item of ours is stored under, beside its account.
inline constexpr auto service = "com.orvanta.native";
inline constexpr auto githubTokenAccount = "github-token";

// Long enough to type a password into the key store's own window.
inline constexpr std::chrono::milliseconds defaultPatience = std::chrono::seconds(30);

// The item's text; none when there is no such item, no key store, or it does not answer or cannot be unlocked, and
// after a stop.
[[nodiscard]] std::optional<std::string> read(const std::string& account,
                                              std::chrono::milliseconds patience = defaultPatience,
                                              const std::stop_token& stop = {});

// Stores the item or replaces its text. Throws `io` ("Keychain write failed (OSStatus …): …") with the reason and what
// to do, and `invalidInput` for a text that is not UTF-8 or holds a NUL; what was stored before then stays.
void write(const std::string& account, const std::string& value, std::chrono::milliseconds patience = defaultPatience,
           const std::stop_token& stop = {});

// Whether there was such an item and it is removed now. One that is missing is fine, and so is a key store that does
// not answer or is locked.
bool remove(const std::string& account, std::chrono::milliseconds patience = defaultPatience,
            const std::stop_token& stop = {});

[[nodiscard]] std::optional<std::string> githubToken(const std::stop_token& stop = {});

// Stores the token without white space around it; one that is then empty, or none, removes it. Whether the key store
// holds something else now: always after storing, else as `remove` says. Throws as `write` does.
bool setGithubToken(const std::optional<std::string>& token, const std::stop_token& stop = {});

}  // namespace orvanta::Keychain
