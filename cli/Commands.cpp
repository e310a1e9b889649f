#include "cli/Commands.h"

#include <algorithm>
#include <array>

namespace orvanta::cli {

namespace {

constexpr auto kCommands = std::to_array<Command>({
    {"Look", "status", "Figures of the library, and what to do next", setUpStatus},
    {"Look", "list", "The skills in the library", setUpList},
    {"Look", "show", "One skill: its source, where it is deployed, its files", setUpShow},
    {"Look", "discover", "Skills in agents' folders that the library does not hold", setUpDiscover},
    {"Look", "log", "What was done, newest first", setUpLog},
    {"Look", "log export", "Write the log to a file", setUpLogExport},
    {"Look", "log clear", "Delete all entries of the log", setUpLogClear},
    {"Skills", "install", "Copy skills into the library from folders, archives, repositories and sites", setUpInstall},
    {"Skills", "preview", "The skills that a Git repository holds", setUpPreview},
    {"Skills", "import", "Bring skills from an agent's folder into the library", setUpImport},
    {"Skills", "edit", "Change a skill's name or description", setUpEdit},
    {"Skills", "enable", "Put disabled skills back into agents' folders", setUpEnable},
    {"Skills", "disable", "Take skills out of all agents' folders for a while", setUpDisable},
    {"Skills", "remove", "Remove skills from the library and from every agent", setUpRemove},
    {"Skills", "tag", "Tags of skills"},
    {"Skills", "tag list", "All tags and how many skills have each", setUpTagList},
    {"Skills", "tag set", "Give a skill exactly these tags", setUpTagSet},
    {"Skills", "tag add", "Add tags to a skill", setUpTagAdd},
    {"Skills", "tag remove", "Take tags from a skill", setUpTagRemove},
    {"Skills", "tag rename", "Rename a tag on every skill", setUpTagRename},
    {"Skills", "tag delete", "Take a tag from every skill", setUpTagDelete},
    {"Catalogues", "search", "Look for skills in the community directory", setUpSearch},
    {"Catalogues", "top", "The skills of the community directory that are installed most", setUpTop},
    {"Catalogues", "well-known", "The skills that a web site publishes", setUpWellKnown},
    {"Updates", "check", "Look for updates of skills", setUpCheck},
    {"Updates", "diff", "What an update of a skill would change", setUpDiff},
    {"Updates", "update", "Bring updates into the library", setUpUpdate},
    {"Updates", "reimport", "Copy a skill anew from the folder it was installed from", setUpReimport},
    {"Updates", "detach", "Forget where a skill came from", setUpDetach},
    {"Updates", "relink", "Take a skill's updates from another repository", setUpRelink},
    {"Agents", "deploy", "Place skills in agents' folders", setUpDeploy},
    {"Agents", "undeploy", "Take skills out of agents' folders", setUpUndeploy},
    {"Agents", "repair", "Fix broken links and refresh stale copies", setUpRepair},
    {"Agents", "delete-unmanaged", "Delete a skill that the library does not manage from an agent's folder",
     setUpDeleteUnmanaged},
    {"Agents", "agent", "The agents and what lies in their folders"},
    {"Agents", "agent list", "All agents, whether they are installed, and their folders", setUpAgentList},
    {"Agents", "agent show", "One agent and every skill in its folder", setUpAgentShow},
    {"Agents", "agent enable", "Use an agent again", setUpAgentEnable},
    {"Agents", "agent disable", "Leave an agent alone; what is deployed to it stays", setUpAgentDisable},
    {"Agents", "agent path", "Show or change the folder of an agent's skills", setUpAgentPath},
    {"Agents", "agent project-path", "Show or change where an agent looks inside a project", setUpAgentProjectPath},
    {"Agents", "agent add", "Add an agent of your own, or change it", setUpAgentAdd},
    {"Agents", "agent remove", "Forget an agent of your own", setUpAgentRemove},
    {"Agents", "agent order", "List these agents first", setUpAgentOrder},
    {"Presets", "preset", "Named sets of skills, applied together"},
    {"Presets", "preset list", "All presets, and how much of each is deployed", setUpPresetList},
    {"Presets", "preset show", "One preset: its skills and the agents that shall have them", setUpPresetShow},
    {"Presets", "preset create", "Make a preset", setUpPresetCreate},
    {"Presets", "preset edit", "Change a preset's name, description or icon", setUpPresetEdit},
    {"Presets", "preset add", "Add skills to a preset", setUpPresetAdd},
    {"Presets", "preset remove", "Take a skill from a preset", setUpPresetRemove},
    {"Presets", "preset set", "Give a preset exactly these skills", setUpPresetSet},
    {"Presets", "preset toggle", "Choose whether an agent shall have a skill of a preset", setUpPresetToggle},
    {"Presets", "preset apply", "Deploy everything a preset wants", setUpPresetApply},
    {"Presets", "preset deactivate", "Take what a preset wants out of agents' folders", setUpPresetDeactivate},
    {"Presets", "preset duplicate", "Make a copy of a preset", setUpPresetDuplicate},
    {"Presets", "preset delete", "Forget a preset; what is deployed stays", setUpPresetDelete},
    {"Presets", "preset reorder", "List these presets first", setUpPresetReorder},
    {"Projects", "project", "Skills inside projects, and how they compare with the library"},
    {"Projects", "project list", "All projects, and how their skills compare with the library", setUpProjectList},
    {"Projects", "project show", "The skills of one project", setUpProjectShow},
    {"Projects", "project add", "Add a project folder", setUpProjectAdd},
    {"Projects", "project link", "Add an agent's own folder as a project", setUpProjectLink},
    {"Projects", "project remove", "Forget a project; its files stay", setUpProjectRemove},
    {"Projects", "project scan", "Look for projects that hold skills", setUpProjectScan},
    {"Projects", "project import", "Copy a project's skill into the library", setUpProjectImport},
    {"Projects", "project export", "Place skills of the library in a project", setUpProjectExport},
    {"Projects", "project pull", "Overwrite a project's skill with the library's version", setUpProjectPull},
    {"Projects", "project push", "Overwrite the library's skill with a project's version", setUpProjectPush},
    {"Projects", "project enable", "Put a disabled skill of a project back", setUpProjectEnable},
    {"Projects", "project disable", "Move a project's skill to where its agent does not find it", setUpProjectDisable},
    {"Projects", "project delete", "Delete a skill from a project", setUpProjectDelete},
    {"Projects", "project reorder", "List these projects first", setUpProjectReorder},
    {"Backup", "backup", "The library as a Git repository: snapshots, shared through a remote"},
    {"Backup", "backup status", "Whether all is saved, and how the remote compares", setUpBackupStatus},
    {"Backup", "backup init", "Begin to back the library up", setUpBackupInit},
    {"Backup", "backup now", "Take a snapshot", setUpBackupNow},
    {"Backup", "backup history", "The snapshots, newest first", setUpBackupHistory},
    {"Backup", "backup remote", "Show or change the repository that snapshots are sent to", setUpBackupRemote},
    {"Backup", "backup push", "Take a snapshot and send all to the remote", setUpBackupPush},
    {"Backup", "backup pull", "Bring in the snapshots of the remote", setUpBackupPull},
    {"Backup", "backup restore", "Go back to a snapshot", setUpBackupRestore},
    {"Backup", "backup clone", "Fill an empty library from a remote", setUpBackupClone},
    {"Backup", "backup auto", "Whether snapshots are taken by themselves", setUpBackupAuto},
    {"Orvanta", "config", "Settings of the library"},
    {"Orvanta", "config list", "All settings and their values", setUpConfigList},
    {"Orvanta", "config get", "The value of one setting", setUpConfigGet},
    {"Orvanta", "config set", "Change a setting", setUpConfigSet},
    {"Orvanta", "config unset", "Go back to a setting's default", setUpConfigUnset},
    {"Orvanta", "token", "The GitHub token, kept in the system's key store"},
    {"Orvanta", "token status", "Whether a token is stored", setUpTokenStatus},
    {"Orvanta", "token set", "Store a token, read from the terminal or standard input", setUpTokenSet},
    {"Orvanta", "token clear", "Remove the token", setUpTokenClear},
    {"Orvanta", "library", "Where the library lies"},
    {"Orvanta", "library path", "The library's folder", setUpLibraryPath},
    {"Orvanta", "library move", "Move the library to another folder", setUpLibraryMove},
    {"Orvanta", "library reset", "Move the library back to ~/.orvanta", setUpLibraryReset},
    {"Orvanta", "diagnostics", "Write a report to pass on when asking for help", setUpDiagnostics},
    {"Orvanta", "completion", "The script that completes commands and names in a shell", setUpCompletion},
    {"Orvanta", "help", "Help on a command", setUpHelp},
});

}  // namespace

std::span<const Command> allCommands() { return kCommands; }

const Command* findCommand(std::string_view name) {
  const auto commands = allCommands();
  const auto found =
      std::find_if(commands.begin(), commands.end(), [&](const auto& each) { return each.name == name; });
  return found == commands.end() ? nullptr : &*found;
}

std::vector<const Command*> verbsOf(std::string_view noun) {
  std::vector<const Command*> verbs;
  for (const Command& command : allCommands()) {
    const bool isVerb =
        command.name.size() > noun.size() + 1 && command.name.starts_with(noun) && command.name[noun.size()] == ' ';
    if (isVerb) verbs.push_back(&command);
  }
  return verbs;
}

}  // namespace orvanta::cli
