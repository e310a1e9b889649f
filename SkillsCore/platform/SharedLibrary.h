#pragma once

// A library of the system that is loaded when it is first used, not when the program starts: most runs need neither
// network nor key store, and loading what these stand on takes longer than such a run.

namespace orvanta {

class SharedLibrary {
 public:
  // Loads the library of this file name for the rest of the process. Throws `io` with the loader's own words where the
  // system has none.
  explicit SharedLibrary(const char* name);

  // Makes `function` the library's function of that name. Throws `io` where the library has none.
  template <typename Function>
  void find(Function*& function, const char* name) const {
    function = reinterpret_cast<Function*>(address(name));
  }

 private:
  [[nodiscard]] void* address(const char* name) const;

  void* handle_;
};

}  // namespace orvanta
