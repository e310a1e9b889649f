#pragma once

// The agents as the user has them: the table with the user's changes, and the operations that change it.

#include <optional>
#include <string>
#include <vector>

#include "agents/ToolAdapters.h"
#include "engine/Library.h"

namespace orvanta {

class AgentSettings {
 public:
  explicit AgentSettings(Library& library) : library_(library) {}

  std::vector<ToolAdapter> adapters();
  // Throws `notFound`.
  ToolAdapter adapter(const std::string& key);
  // With the folder in force and the number of deployments.
  std::vector<ToolInfo> tools();

  void setToolEnabled(const std::string& key, bool enabled);
  void setToolPath(const std::string& key, const std::optional<std::string>& path);
  void setToolProjectPath(const std::string& key, const std::optional<std::string>& path);
  void setToolOrder(const std::vector<std::string>& keys);
  void saveCustomTool(const CustomToolDefinition& definition);
  // Returns how many deployment records were dropped.
  std::size_t removeCustomTool(const std::string& key);

 private:
  void requireUsablePath(const std::string& path) const;

  Library& library_;
};

}  // namespace orvanta
