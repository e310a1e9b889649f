#pragma once

// The two ends that a move of the library can come to, however it was cut short: everything is at the old place again,
// or everything is at the new one. Both can be cut short themselves and begun again.

#include <cstddef>
#include <string>
#include <vector>

#include "files/Paths.h"
#include "persistence/SkillStore.h"
#include "platform/Host.h"

namespace orvanta {

// A move that has begun. Whoever works on it holds the locks of both places.
struct LibraryMove {
  Paths from;
  Paths to;
  int createdFolders = 0;  // as the journal of the old place says
  bool renames = false;    // as that of the new place says

  // The folders that move, in this order.
  static constexpr const char* folders[]{"skills", "cache", "logs", "bin"};

  struct Completion {
    std::size_t relinked = 0;
    std::vector<std::string> errors;      // what could not be done; the next start tries again
    std::vector<std::string> leftBehind;  // names in the old folder that are not the library's
    bool isChosen = false;                // programs that are told nothing else use the new place
  };

  // How far a move has come that is to be taken back.
  enum class Stage {
    announced,   // the journal in the old folder is written
    placeTaken,  // the new folder is there and locked
    begun,       // its journal is written too: parts of the library may be there
  };
  // Gives everything back to the old place, and removes what was made at the new one. Throws `io` or `conflict` with
  // nothing lost; the journals are still there then.
  void takeBack(Stage stage) const;

  // The new place has everything: saves it as the user's choice where the old one was that, re-points links, and
  // empties the old place of what is the library's. Never throws.
  Completion finish(SkillStore& store, const UserFolders& user) const;

 private:
  void giveBackFolders() const;
  void giveBackSkills() const;
  void removeCopies() const;
  bool choose(const UserFolders& user) const;
  void leaveOldPlace(std::vector<std::string>& leftBehind) const;
  void emptyOldPlace() const;
  void removeCopied(const std::string& name) const;
  [[nodiscard]] std::vector<std::string> foreignNames() const;
};

// Removes a library's database with the files that SQLite keeps beside it.
void removeDatabase(const Paths& base);

// Whether a name in the folder of a library says nothing about what is in the folder: what file managers leave, the
// journal of a move, the lock.
bool isIncidental(std::string_view name);

}  // namespace orvanta
