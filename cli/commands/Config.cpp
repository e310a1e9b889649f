#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "cli/CommandLine.h"
#include "cli/Format.h"
#include "cli/Names.h"
#include "cli/Output.h"
#include "cli/Table.h"
#include "foundations/SkillsError.h"
#include "foundations/Text.h"
#include "platform/WebAddress.h"
#include "sources/PlazzaAPI.h"

namespace orvanta::cli {

namespace {

struct Setting {
  std::string_view key;
  std::string_view about;
  std::string_view fallback;  // the value in force when none is set
  void (*check)(const std::string& value);
};

struct KeyOptions {
  std::string key;
};

struct SetOptions {
  std::string key;
  std::string value;
};

void checkSyncMode(const std::string& value) {
  if (parseSyncMode(value)) return;
  throw SkillsError::invalidInput(
      fmt::format("{} is no way to place skills: use 'symlink' or 'copy'.", inQuotes(value)));
}

void checkProxy(const std::string& value) {
  if (isProxyAddress(value)) return;
  throw SkillsError::invalidInput(
      fmt::format("{} is not the address of a proxy: write scheme://host or scheme://host:port, for example "
                  "http://proxy.example:8080. The scheme is http, https, socks4, socks4a, socks5 or socks5h.",
                  inQuotes(shownAddress(value))));
}

void checkPlazza(const std::string& value) {
  if (PlazzaAPI::isBaseURL(value)) return;
  throw SkillsError::invalidInput(
      fmt::format("{} is not the address of a directory: write https://HOST, without user name and password.",
                  inQuotes(shownAddress(value))));
}

constexpr std::array kSettings{
    Setting{"sync_mode", "How skills are placed: symlink or copy", "symlink", checkSyncMode},
    Setting{"proxy_url", "The proxy for what goes over the network", "", checkProxy},
    Setting{"plazza_url", "The community directory of skills", PlazzaAPI::defaultURL, checkPlazza},
};

const Setting& settingCalled(const std::string& key) {
  const auto found =
      std::find_if(kSettings.begin(), kSettings.end(), [&](const auto& each) { return each.key == key; });
  if (found != kSettings.end()) return *found;
  std::vector<std::string> keys;
  for (const Setting& setting : kSettings) keys.emplace_back(setting.key);
  throw SkillsError::notFound(
      fmt::format("There is no setting {}. The settings are: {}.", inQuotes(key), Text::join(keys, ", ")));
}

// As it may be shown: without the user name and password in an address.
std::string valueOf(Session& session, const Setting& setting) {
  return shownAddress(session.engine().setting(std::string(setting.key)).value_or(std::string(setting.fallback)));
}

Json asJson(const Setting& setting, const std::string& value) {
  return {{"key", setting.key}, {"value", value.empty() ? Json() : Json(value)}};
}

ExitStatus list(Session& session) {
  session.engine();  // a library that cannot be opened is told before a document is begun
  if (session.json()) {
    JsonArray array(session.out().stream());
    for (const Setting& setting : kSettings) array.add(asJson(setting, valueOf(session, setting)));
    return ExitStatus::done;
  }
  Table table({{"KEY"}, {"VALUE", true}, {"WHAT IT IS", true}});
  for (const Setting& setting : kSettings) {
    const std::string value = valueOf(session, setting);
    table.add(
        {std::string(setting.key), value.empty() ? Cell("-", Style::faint) : Cell(value), std::string(setting.about)});
  }
  table.write(session.out());
  return ExitStatus::done;
}

ExitStatus showValue(Session& session, const Setting& setting) {
  const std::string value = valueOf(session, setting);
  if (session.json()) {
    writeJson(session.out().stream(), asJson(setting, value));
  } else if (!value.empty()) {
    session.out().line(Text::singleLine(value));
  }
  return ExitStatus::done;
}

ExitStatus showChange(Session& session, const Setting& setting) {
  if (session.json()) return showValue(session, setting);
  const std::string value = valueOf(session, setting);
  session.out().line(value.empty() ? fmt::format("{} is not set.", setting.key)
                                   : fmt::format("{} is {}.", setting.key, inQuotes(value)));
  return ExitStatus::done;
}

ExitStatus get(Session& session, const KeyOptions& options) { return showValue(session, settingCalled(options.key)); }

ExitStatus set(Session& session, const SetOptions& options) {
  const Setting& setting = settingCalled(options.key);
  const std::string value(Text::trim(options.value));
  setting.check(value);
  session.change([&](const OperationContext&) {
    const auto mode = setting.key == "sync_mode" ? parseSyncMode(value) : std::nullopt;
    mode ? session.engine().setSyncMode(*mode) : session.engine().setSetting(options.key, value);
  });
  return showChange(session, setting);
}

ExitStatus unset(Session& session, const KeyOptions& options) {
  const Setting& setting = settingCalled(options.key);
  session.change([&](const OperationContext&) { session.engine().setSetting(options.key, std::nullopt); });
  return showChange(session, setting);
}

void keyArgument(CommandLine& line, std::string& target) {
  std::vector<std::string> keys;
  for (const Setting& setting : kSettings) keys.emplace_back(setting.key);
  line.argument("KEY", target, "One of " + Text::join(keys, ", ")).required().offers(keys);
}

}  // namespace

void setUpConfigList(CommandLine& line) {
  line.runs(list);
  line.example("orvanta config list", "Every setting, its value and what it is for");
}

void setUpConfigGet(CommandLine& line) {
  keyArgument(line, line.runs<KeyOptions>(get).key);
  line.example("orvanta config get sync_mode", "The value in force");
}

void setUpConfigSet(CommandLine& line) {
  SetOptions& options = line.runs<SetOptions>(set);
  keyArgument(line, options.key);
  line.argument("VALUE", options.value, "The new value; it is checked before it is stored").required();
  line.example("orvanta config set sync_mode copy", "From now on place copies instead of links");
  line.explain("Deployments that exist stay as they are until they are deployed again.");
}

void setUpConfigUnset(CommandLine& line) {
  keyArgument(line, line.runs<KeyOptions>(unset).key);
  line.example("orvanta config unset proxy_url", "Go back to the default");
}

}  // namespace orvanta::cli
