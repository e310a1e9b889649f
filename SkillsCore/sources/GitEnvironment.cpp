#include "sources/GitEnvironment.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include <fmt/core.h>
#include <openssl/evp.h>

#include "foundations/Text.h"
#include "platform/Host.h"
#include "sources/GitSource.h"

namespace orvanta {

namespace {

// More than anybody sets by hand; git gives up on absurd counts, and so need not be followed there.
constexpr std::size_t mostEntries = 10'000;

std::size_t numberIn(std::string_view text) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number <= mostEntries ? number : 0;
}

std::string base64(const std::string& bytes) {
  std::string encoded((bytes.size() + 2) / 3 * 4 + 1, '\0');  // the library adds a NUL
  const auto length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),  // NOLINT(*-reinterpret-cast)
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  encoded.resize(static_cast<std::size_t>(length));
  return encoded;
}

// The text with "%41" and the like replaced by the bytes they stand for.
std::string percentDecoded(std::string_view text) {
  std::string decoded;
  while (!text.empty()) {
    unsigned char byte = 0;
    const char* const digits = text.data() + 1;
    if (text[0] == '%' && text.size() >= 3 && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      decoded += static_cast<char>(byte);
      text.remove_prefix(3);
    } else {
      decoded += text[0];
      text.remove_prefix(1);
    }
  }
  return decoded;
}

bool isPlain(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char byte) { return byte >= 0 && byte < ' '; });
}

struct Credentials {
  std::string server;  // the URL's scheme, host and port
  std::string path;    // the rest of it
  std::string user;
  std::optional<std::string> password;
};

std::optional<Credentials> credentialsIn(std::string_view url) {
  const auto lower = Text::lowercase(url);
  if (!lower.starts_with("http://") && !lower.starts_with("https://")) return std::nullopt;
  const auto begin = url.find("://") + 3;
  const auto end = std::min(url.find_first_of("/?#", begin), url.size());
  const auto at = url.substr(begin, end - begin).rfind('@');
  if (at == std::string_view::npos) return std::nullopt;

  const auto userAndPassword = url.substr(begin, at);
  const auto colon = std::min(userAndPassword.find(':'), userAndPassword.size());
  Credentials found;
  found.server = fmt::format("{}{}", url.substr(0, begin), url.substr(begin + at + 1, end - begin - at - 1));
  found.path = url.substr(end);
  found.user = percentDecoded(userAndPassword.substr(0, colon));
  if (colon < userAndPassword.size()) found.password = percentDecoded(userAndPassword.substr(colon + 1));
  if (!isPlain(url) || !isPlain(found.user) || !isPlain(found.password.value_or(""))) return std::nullopt;
  return found;
}

}  // namespace

GitEnvironment::GitEnvironment() : entries_(numberIn(environmentVariable("GIT_CONFIG_COUNT").value_or(""))) {
  // On a desktop, ssh would otherwise open a window and wait for an answer.
  variables_["SSH_ASKPASS_REQUIRE"] = "never";
}

void GitEnvironment::configure(const std::string& key, const std::string& value) {
  variables_[fmt::format("GIT_CONFIG_KEY_{}", entries_)] = key;
  variables_[fmt::format("GIT_CONFIG_VALUE_{}", entries_)] = value;
  variables_["GIT_CONFIG_COUNT"] = std::to_string(++entries_);
}

void GitEnvironment::runNoPrograms() {
  configure("core.hooksPath", "/dev/null");
  configure("core.fsmonitor", "false");
  configure("core.symlinks", "true");
  configure("core.autocrlf", "false");
  // A server that stalls must not keep a git that has lost whoever would end it.
  configure("http.lowSpeedLimit", "1000");
  configure("http.lowSpeedTime", "60");
  variables_["GIT_TEMPLATE_DIR"] = "";
}

void GitEnvironment::limitToReading() {
  runNoPrograms();
  configure("filter.lfs.process", "");
  configure("filter.lfs.smudge", "");
  configure("filter.lfs.required", "false");
  variables_["GIT_ALLOW_PROTOCOL"] = "http:https:ssh";
}

void GitEnvironment::limitToBackup(const std::filesystem::path& root) {
  runNoPrograms();
  configure("core.fsync", "all");
  // A personal list of ignored files would leave gaps in the backup that nobody sees.
  configure("core.excludesFile", "/dev/null");
  configure("commit.gpgSign", "false");
  configure("log.showSignature", "false");
  configure("push.gpgSign", "false");
  configure("merge.verifySignatures", "false");
  configure("merge.ff", "true");
  // Its hints name commands of its own.
  configure("advice.pushUpdateRejected", "false");
  // What was renamed on one side and edited on the other is for its owner to settle.
  configure("merge.renames", "false");
  configure("rerere.enabled", "false");
  configure("merge.default", "text");
  // Work in the background would hold locks, and go on after whoever asked for it has ended.
  configure("gc.auto", "0");
  configure("maintenance.auto", "false");
  configure("remote.origin.uploadpack", "git-upload-pack");
  configure("remote.origin.receivepack", "git-receive-pack");
  // Names that are dangerous on other systems only are a skill's own business.
  configure("core.protectNTFS", "false");
  configure("clone.defaultRemoteName", "origin");
  configure("fetch.recurseSubmodules", "false");
  configure("push.recurseSubmodules", "no");
  configure("submodule.recurse", "false");
  configure("status.showUntrackedFiles", "normal");
  configure("safe.bareRepository", "explicit");
  variables_["GIT_ALLOW_PROTOCOL"] = "file:http:https:ssh";
  variables_["GIT_CEILING_DIRECTORIES"] = root.parent_path().string();
  // Looking at the state of the repository leaves no lock behind when it is killed.
  variables_["GIT_OPTIONAL_LOCKS"] = "0";
  variables_["GIT_LITERAL_PATHSPECS"] = "1";
}

void GitEnvironment::useWorkTree(const std::filesystem::path& folder) { variables_["GIT_WORK_TREE"] = folder.string(); }

void GitEnvironment::useIndex(const std::filesystem::path& file) { variables_["GIT_INDEX_FILE"] = file.string(); }

void GitEnvironment::sendGithubToken(std::string_view token) {
  configure(fmt::format("http.https://{}/.extraHeader", GitSource::githubHost),
            fmt::format("Authorization: Basic {}", base64(fmt::format("x-access-token:{}", token))));
}

std::string GitEnvironment::withoutCredentials(const std::string& url) {
  const auto found = credentialsIn(url);
  if (!found) return url;
  const auto section = fmt::format("credential.{}.", found->server);
  configure(section + "username", found->user);
  if (found->password) {
    // The user's own helpers are neither asked instead nor told what the URL holds.
    configure(section + "helper", "");
    configure(section + "helper", R"(!f() { printf 'password=%s\n' "$ORVANTA_GIT_PASSWORD"; }; f)");
    variables_["ORVANTA_GIT_PASSWORD"] = *found->password;
  }
  auto address = found->server + found->path;
  configure(fmt::format("url.{}.insteadOf", address), url);
  return address;
}

}  // namespace orvanta
