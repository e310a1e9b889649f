#include "platform/SharedLibrary.h"

#include <dlfcn.h>

#include <fmt/format.h>

#include "foundations/SkillsError.h"

namespace orvanta {

namespace {

[[noreturn]] void throwLoaderError(const char* name) {
  const char* reason = ::dlerror();
  throw SkillsError::io(fmt::format("Cannot load {}: {}", name, reason == nullptr ? "unknown reason" : reason));
}

}  // namespace

SharedLibrary::SharedLibrary(const char* name) : handle_(::dlopen(name, RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) throwLoaderError(name);
}

void* SharedLibrary::address(const char* name) const {
  void* found = ::dlsym(handle_, name);
  if (found == nullptr) throwLoaderError(name);
  return found;
}

}  // namespace orvanta
