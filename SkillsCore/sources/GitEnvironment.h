#pragma once

// What git is told by its environment instead of its arguments: secrets, because every user of the machine can read the
// arguments of a running program but only its owner the environment, and the limits within which it works for us. Git
// reads configuration from there since version 2.31; an older one goes without it, so a token is then not sent.

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace orvanta {

class GitEnvironment {
 public:
  // Configuration that the user set in the same way stays in force.
  GitEnvironment();

  // The last of equal keys wins, or adds to the others, as in a configuration file; all of the user's files come first.
  void configure(const std::string& key, const std::string& value);

  // What protects the user from a repository that a stranger filled, and the result from the user's own habits: no
  // hook, template, submodule, background process or download of large files; nothing but http, https and ssh; and what
  // arrives is what was published, byte for byte, links included. Everything else in the user's configuration goes on
  // working, such as proxies, certificates, credential helpers and rewritten addresses.
  //
  // Received objects are examined only if the user's configuration says so: git refuses dangerous names when it writes
  // the files anyway, while the examination refuses old repositories for harmless faults.
  void limitToReading();

  // For the repository that the library's folder `root` is. What is backed up are the files, byte for byte, whatever
  // habits the user has elsewhere and whatever the repository says of itself: hooks, filters, signatures and the like
  // run no program, and no repository further up is taken for this one. What git reports as done has been flushed.
  void limitToBackup(const std::filesystem::path& root);

  // Files and an index other than the repository's own.
  void useWorkTree(const std::filesystem::path& folder);
  void useIndex(const std::filesystem::path& file);

  // A token that is sent to GitHub by https and to nobody else.
  void sendGithubToken(std::string_view token);

  // Moves the user name and password in an http or https URL into the environment, and returns the URL without them.
  // They are offered to this server only, when it asks, also where git finds the whole URL in its configuration. Other
  // URLs, and ones that no server could accept, are returned as they are.
  std::string withoutCredentials(const std::string& url);

  [[nodiscard]] const std::map<std::string, std::string>& variables() const { return variables_; }

 private:
  void runNoPrograms();

  std::map<std::string, std::string> variables_;
  std::size_t entries_ = 0;
};

}  // namespace orvanta
