#pragma once

// The one table of commands. Help, man page and completions are made from it, so they cannot disagree with what the
// program does. Only the command that was asked for is set up; that keeps starting cheap.

#include <span>
#include <string_view>
#include <vector>

namespace orvanta::cli {

class CommandLine;

struct Command {
  std::string_view group;
  std::string_view name;  // "deploy"; "tag set" for a verb of the noun "tag"
  std::string_view summary;
  void (*setUp)(CommandLine&) = nullptr;  // none for a noun that only holds verbs
};

std::span<const Command> allCommands();

// The command with this name; none when there is no such command.
const Command* findCommand(std::string_view name);

// The verbs of a noun, in the table's order.
std::vector<const Command*> verbsOf(std::string_view noun);

void setUpStatus(CommandLine& line);
void setUpList(CommandLine& line);
void setUpShow(CommandLine& line);
void setUpInstall(CommandLine& line);
void setUpPreview(CommandLine& line);
void setUpSearch(CommandLine& line);
void setUpTop(CommandLine& line);
void setUpWellKnown(CommandLine& line);
void setUpCheck(CommandLine& line);
void setUpDiff(CommandLine& line);
void setUpUpdate(CommandLine& line);
void setUpReimport(CommandLine& line);
void setUpDetach(CommandLine& line);
void setUpRelink(CommandLine& line);
void setUpRemove(CommandLine& line);
void setUpEdit(CommandLine& line);
void setUpEnable(CommandLine& line);
void setUpDisable(CommandLine& line);
void setUpDeploy(CommandLine& line);
void setUpUndeploy(CommandLine& line);
void setUpRepair(CommandLine& line);
void setUpDiscover(CommandLine& line);
void setUpImport(CommandLine& line);
void setUpDeleteUnmanaged(CommandLine& line);
void setUpAgentList(CommandLine& line);
void setUpAgentShow(CommandLine& line);
void setUpAgentEnable(CommandLine& line);
void setUpAgentDisable(CommandLine& line);
void setUpAgentPath(CommandLine& line);
void setUpAgentProjectPath(CommandLine& line);
void setUpAgentAdd(CommandLine& line);
void setUpAgentRemove(CommandLine& line);
void setUpAgentOrder(CommandLine& line);
void setUpTagList(CommandLine& line);
void setUpTagSet(CommandLine& line);
void setUpTagAdd(CommandLine& line);
void setUpTagRemove(CommandLine& line);
void setUpTagRename(CommandLine& line);
void setUpTagDelete(CommandLine& line);
void setUpPresetList(CommandLine& line);
void setUpPresetShow(CommandLine& line);
void setUpPresetCreate(CommandLine& line);
void setUpPresetEdit(CommandLine& line);
void setUpPresetDelete(CommandLine& line);
void setUpPresetDuplicate(CommandLine& line);
void setUpPresetReorder(CommandLine& line);
void setUpPresetAdd(CommandLine& line);
void setUpPresetRemove(CommandLine& line);
void setUpPresetSet(CommandLine& line);
void setUpPresetToggle(CommandLine& line);
void setUpPresetApply(CommandLine& line);
void setUpPresetDeactivate(CommandLine& line);
void setUpProjectList(CommandLine& line);
void setUpProjectShow(CommandLine& line);
void setUpProjectAdd(CommandLine& line);
void setUpProjectLink(CommandLine& line);
void setUpProjectRemove(CommandLine& line);
void setUpProjectScan(CommandLine& line);
void setUpProjectImport(CommandLine& line);
void setUpProjectExport(CommandLine& line);
void setUpProjectPull(CommandLine& line);
void setUpProjectPush(CommandLine& line);
void setUpProjectEnable(CommandLine& line);
void setUpProjectDisable(CommandLine& line);
void setUpProjectDelete(CommandLine& line);
void setUpProjectReorder(CommandLine& line);
void setUpBackupStatus(CommandLine& line);
void setUpBackupInit(CommandLine& line);
void setUpBackupNow(CommandLine& line);
void setUpBackupHistory(CommandLine& line);
void setUpBackupRemote(CommandLine& line);
void setUpBackupPush(CommandLine& line);
void setUpBackupPull(CommandLine& line);
void setUpBackupRestore(CommandLine& line);
void setUpBackupClone(CommandLine& line);
void setUpBackupAuto(CommandLine& line);
void setUpLog(CommandLine& line);
void setUpLogExport(CommandLine& line);
void setUpLogClear(CommandLine& line);
void setUpConfigList(CommandLine& line);
void setUpConfigGet(CommandLine& line);
void setUpConfigSet(CommandLine& line);
void setUpConfigUnset(CommandLine& line);
void setUpTokenStatus(CommandLine& line);
void setUpTokenSet(CommandLine& line);
void setUpTokenClear(CommandLine& line);
void setUpLibraryPath(CommandLine& line);
void setUpLibraryMove(CommandLine& line);
void setUpLibraryReset(CommandLine& line);
void setUpDiagnostics(CommandLine& line);
void setUpCompletion(CommandLine& line);
void setUpHelp(CommandLine& line);

}  // namespace orvanta::cli
