#pragma once

// Results as JSON: exactly one document on standard output. Objects take one line; arrays have one element a line, so
// that long ones need not be held in memory.

#include <ostream>
#include <string_view>

#include "engine/Reports.h"
#include "foundations/ModelsJSON.h"

namespace orvanta {

void to_json(Json& json, const Placement& placement);
void to_json(Json& json, const PlannedStep& step);

}  // namespace orvanta

namespace orvanta::cli {

void writeJson(std::ostream& out, const Json& json);

// What went wrong, as the one document that a script finds on the error stream.
void writeError(std::ostream& out, std::string_view kind, std::string_view message);

// An array written element by element; the destructor closes it, also when nothing was added.
class JsonArray {
 public:
  explicit JsonArray(std::ostream& out) : out_(&out) { out << '['; }
  ~JsonArray() { *out_ << (isEmpty_ ? "]\n" : "\n]\n"); }
  JsonArray(const JsonArray&) = delete;
  JsonArray& operator=(const JsonArray&) = delete;

  void add(const Json& element);

 private:
  std::ostream* out_;
  bool isEmpty_ = true;
};

// An object written member by member; the destructor closes it.
class JsonObject {
 public:
  explicit JsonObject(std::ostream& out) : out_(&out) { out << '{'; }
  ~JsonObject() { *out_ << "}\n"; }
  JsonObject(const JsonObject&) = delete;
  JsonObject& operator=(const JsonObject&) = delete;

  void member(std::string_view key, const Json& value) {
    begin(key);
    *out_ << jsonText(value);
  }
  template <typename Range>
  void array(std::string_view key, const Range& elements) {
    begin(key);
    *out_ << '[';
    const char* separator = "\n";
    for (const auto& element : elements) {
      *out_ << separator << jsonText(element);
      separator = ",\n";
    }
    *out_ << ']';
  }

 private:
  void begin(std::string_view key);

  std::ostream* out_;
  bool isEmpty_ = true;
};

template <typename Range>
void writeJsonArray(std::ostream& out, const Range& elements) {
  JsonArray array(out);
  for (const auto& element : elements) array.add(element);
}

}  // namespace orvanta::cli
