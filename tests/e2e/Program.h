#pragma once

// Runs the built program as its user would: in the sandbox's home, with a clean environment, by its words alone.

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "foundations/ModelsJSON.h"
#include "tests/support/Sandbox.h"

namespace orvanta {

class Program : public Sandbox {
 protected:
  using Words = std::vector<std::string>;

  struct Outcome {
    int status = -1;  // the exit status, or 128 and the signal
    std::string out;
    std::string err;
  };

  Program();

  // Runs to the end, with no terminal and nothing to read.
  Outcome orvanta(const Words& words);
  // The result under --json of a run that must succeed.
  Json json(Words words);
  // All three streams are one terminal of 80 columns, on which this is typed, once it shows `awaited`; `out` is what it
  // shows.
  Outcome onTerminal(const Words& words, const std::string& typed, const std::string& awaited = "") const;

  // A run that goes on meanwhile.
  struct Running {
    pid_t id = -1;
    Path out;
    Path err;
  };
  Running start(const Words& words);
  static Outcome finish(const Running& running);

  std::map<std::string, std::string> environment;

 private:
  // In a process that was forked for it: becomes the program.
  [[noreturn]] void execute(const Words& words) const;

  int runs_ = 0;
};

}  // namespace orvanta
