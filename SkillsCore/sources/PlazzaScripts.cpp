#include "sources/PlazzaScripts.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include <pcre2.h>

namespace orvanta {

namespace {

constexpr std::string_view kPattern =
    R"(\\?"source\\?":\\?"(?<source>[^"\\]+)\\?",(?:[^{}]|\\.)*?(?:\\?"skillId\\?"|\\?"skill_id\\?"):\\?"(?<skill>[^"\\]+)\\?",(?:[^{}]|\\.)*?\\?"name\\?":\\?"(?<name>[^"\\]*)\\?",(?:[^{}]|\\.)*?\\?"installs\\?":(?<installs>\d+))";

// An object of 10 KiB takes a tenth of this. The pattern can match a run of backslashes in as many ways as there are
// subsets of it, so without limits a single object could take forever.
constexpr std::uint32_t kMostTriesOfOneObject = 100'000;
constexpr std::uint32_t kMostMemoryKiB = 64 << 10;
// Of a whole page; a listed skill takes some hundred. Counted by way of callouts, because the library's own limits
// count anew at every position of the page, of which there are millions.
constexpr std::int64_t kMostSteps = 25'000'000;

struct CodeDeleter {
  void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};
struct ContextDeleter {
  void operator()(pcre2_match_context* context) const { pcre2_match_context_free(context); }
};
struct DataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

template <typename Handle>
Handle* required(Handle* handle) {
  if (handle == nullptr) throw std::bad_alloc();
  return handle;
}

PCRE2_SPTR bytes(std::string_view text) {
  return reinterpret_cast<PCRE2_SPTR>(text.data());  // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
}

class Search {
 public:
  explicit Search(std::string_view page) : page_(page) {
    pcre2_set_match_limit(context_.get(), kMostTriesOfOneObject);
    pcre2_set_depth_limit(context_.get(), kMostTriesOfOneObject);
    pcre2_set_heap_limit(context_.get(), kMostMemoryKiB);
    pcre2_set_callout(context_.get(), &Search::onStep, this);
  }

  // Moves to the next match; false when there is none.
  bool next() {
    while (position_ < page_.size() && steps_ < kMostSteps) {
      const int result =
          pcre2_match(code_.get(), bytes(page_), page_.size(), position_, 0, data_.get(), context_.get());
      if (result == PCRE2_ERROR_NOMATCH) return false;
      if (result > 0) {
        position_ = pcre2_get_ovector_pointer(data_.get())[1];
        return true;
      }
      position_ = std::max(position_, attempt_) + 1;
    }
    return false;
  }

  [[nodiscard]] std::string_view group(const char* name) const {
    const int number = pcre2_substring_number_from_name(code_.get(), bytes(name));
    const auto* range = pcre2_get_ovector_pointer(data_.get()) + std::ptrdiff_t{2} * number;
    return page_.substr(range[0], range[1] - range[0]);
  }

 private:
  static pcre2_code* compiled() {
    int error = 0;
    PCRE2_SIZE where = 0;
    return pcre2_compile(bytes(kPattern), kPattern.size(), PCRE2_AUTO_CALLOUT, &error, &where, nullptr);
  }

  static int onStep(pcre2_callout_block* step, void* search) {
    auto& self = *static_cast<Search*>(search);
    self.attempt_ = step->start_match;
    return ++self.steps_ < kMostSteps ? 0 : PCRE2_ERROR_CALLOUT;
  }

  const std::string_view page_;
  std::size_t position_ = 0;
  std::size_t attempt_ = 0;  // where the object begins that is being read
  std::int64_t steps_ = 0;
  const std::unique_ptr<pcre2_code, CodeDeleter> code_{required(compiled())};
  const std::unique_ptr<pcre2_match_context, ContextDeleter> context_{required(pcre2_match_context_create(nullptr))};
  const std::unique_ptr<pcre2_match_data, DataDeleter> data_{
      required(pcre2_match_data_create_from_pattern(code_.get(), nullptr))};
};

}  // namespace

void forEachSkillInScripts(std::string_view page, const std::function<void(const ScriptedSkill&)>& body) {
  Search search(page);
  while (search.next()) {
    body({.source = search.group("source"),
          .skillId = search.group("skill"),
          .name = search.group("name"),
          .installs = search.group("installs")});
  }
}

}  // namespace orvanta
