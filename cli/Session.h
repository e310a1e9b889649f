#pragma once

// What a command works with: its library, opened when first needed, and the ways to speak with the user. Results go to
// `out`, everything else to `err`.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/ExitStatus.h"
#include "cli/Interrupt.h"
#include "cli/ProgressLine.h"
#include "cli/Terminal.h"
#include "engine/SkillsEngine.h"

namespace orvanta::cli {

struct GlobalOptions {
  std::string library;
  bool json = false;
  bool quiet = false;
  bool verbose = false;
  bool yes = false;
  std::string color = "auto";
  bool help = false;
  bool version = false;
};

class Session {
 public:
  Session(const Streams& streams, const GlobalOptions& options);

  [[nodiscard]] const GlobalOptions& options() const { return options_; }
  [[nodiscard]] bool json() const { return options_.json; }
  [[nodiscard]] const Terminal& out() const { return out_; }
  [[nodiscard]] const Terminal& err() const { return err_; }

  const UserFolders& user();
  // Where the library is or would be; opens nothing.
  const Paths& paths();
  // The same after a move of the library that was cut short has been finished or taken back.
  const Paths& settledPaths();
  // How the user named the library's folder for this run alone: "--library", "ORVANTA_HOME"; empty where not.
  [[nodiscard]] std::string_view namedBy() const;
  // The library, made where there is none.
  SkillsEngine& engine();
  [[nodiscard]] bool hasOpenedEngine() const { return engine_ != nullptr; }

  // Something worth knowing beside the result; silent under --quiet.
  void note(std::string_view text) const;
  // One thing that went wrong while the rest goes on.
  void problem(std::string_view text) const;
  // Those of a bulk command. Under --json they stand in the command's document instead.
  void problems(const std::vector<std::string>& texts) const;

  // Someone is there to answer.
  [[nodiscard]] bool canAsk() const { return streams_.inIsTerminal && streams_.errIsTerminal; }
  // `confirm` will ask: time to show what is at stake.
  [[nodiscard]] bool willAsk() const { return canAsk() && !options_.yes; }
  // The line typed in answer; nothing at the end of input.
  std::optional<std::string> ask(std::string_view question) const;
  // The next line of standard input without white space around it; nothing at its end. Throws `invalidInput` for one
  // longer than 64 KiB.
  [[nodiscard]] std::optional<std::string> readLine() const;
  // Returns when the user agrees. Throws `refused` when not, and `UsageError` where nobody can be asked and --yes was
  // not given. `question` names what will go: "Remove 3 skills?".
  void confirm(std::string_view question) const;

  // Runs a change: Ctrl-C stops it between two steps, and a line shows how far it is. Outside of changes, at a question
  // for instance, Ctrl-C ends the program as it always does.
  template <typename Change>
  auto change(Change&& run) {
    const Interruptible interruptible(wasInterrupted_);
    ProgressLine line(err_);
    return std::forward<Change>(run)(contextFor(line, interruptible.interrupt.token()));
  }
  [[nodiscard]] bool wasInterrupted() const { return wasInterrupted_; }

 private:
  // Remembers beyond the change whether it was interrupted.
  struct Interruptible {
    explicit Interruptible(bool& wasInterrupted) : noted(wasInterrupted) {}
    ~Interruptible() { noted = noted || interrupt.requested(); }
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;

    bool& noted;
    const Interrupt interrupt;
  };

  OperationContext contextFor(ProgressLine& line, std::stop_token stop) const;

  Streams streams_;
  GlobalOptions options_;
  Terminal out_;
  Terminal err_;
  std::optional<UserFolders> user_;
  std::optional<Paths> paths_;
  std::unique_ptr<SkillsEngine> engine_;
  bool wasInterrupted_ = false;
};

}  // namespace orvanta::cli
