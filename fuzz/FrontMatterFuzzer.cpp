// Whatever a stranger writes as a SKILL.md, reading it ends, stays inside its memory and gives usable texts.

#include "content/FrontMatter.h"
#include "content/SkillMetadata.h"
#include "foundations/Text.h"
#include "fuzz/Fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace orvanta;  // NOLINT(google-build-using-namespace)
  using fuzzing::require;
  const auto text = fuzzing::textOf(data, size);
  const bool isUTF8 = Text::isValidUTF8(text);

  const auto values = SkillMetadata::parseFrontmatter(text);
  for (const auto& [key, value] : values) require(!key.empty() && (!isUTF8 || Text::isValidUTF8(value)));

  const SkillMeta meta = SkillMetadata::parseMeta(text);
  require(meta.name != "" && meta.description != "");
  require(!meta.name || meta.name->find('\n') == std::string::npos);
  if (holdsWholeFrontMatter(text)) {
    std::string longer(text);
    longer.append("\nname: from the body\ndescription: |\n  from the body\n");
    require(SkillMetadata::parseMeta(longer) == meta);
  }

  const std::string inferred = meta.name.value_or("");
  for (const std::string_view name : {text, std::string_view(inferred)}) {
    const auto safe = SkillMetadata::sanitizeSkillName(name);
    require(!safe || (SkillMetadata::isSafeFolderName(*safe) && SkillMetadata::sanitizeSkillName(*safe) == safe));
    require(Text::isValidUTF8(SkillMetadata::slugify(name)));
  }
  return 0;
}
