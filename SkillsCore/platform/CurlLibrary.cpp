#include "platform/CurlLibrary.h"

#include "foundations/SkillsError.h"
#include "platform/SharedLibrary.h"

namespace orvanta {

namespace {

#ifdef __APPLE__
constexpr auto fileName = "libcurl.4.dylib";
#else
constexpr auto fileName = "libcurl.so.4";
#endif

SharedLibrary loaded() {
  try {
    return SharedLibrary(fileName);
  } catch (const SkillsError& error) {
    throw SkillsError::network(error.message() + ". Install libcurl to use the network.");
  }
}

}  // namespace

const CurlLibrary& CurlLibrary::get() {
  static const CurlLibrary library;
  return library;
}

CurlLibrary::CurlLibrary() {
  const auto library = loaded();
  library.find(globalInit, "curl_global_init");
  library.find(easyInit, "curl_easy_init");
  library.find(easyCleanup, "curl_easy_cleanup");
  library.find(easySetopt, "curl_easy_setopt");
  library.find(easyGetinfo, "curl_easy_getinfo");
  library.find(easyStrerror, "curl_easy_strerror");
  library.find(multiInit, "curl_multi_init");
  library.find(multiCleanup, "curl_multi_cleanup");
  library.find(multiAddHandle, "curl_multi_add_handle");
  library.find(multiRemoveHandle, "curl_multi_remove_handle");
  library.find(multiPerform, "curl_multi_perform");
  library.find(multiPoll, "curl_multi_poll");
  library.find(multiInfoRead, "curl_multi_info_read");
  library.find(slistAppend, "curl_slist_append");
  library.find(slistFreeAll, "curl_slist_free_all");
  library.find(urlInit, "curl_url");
  library.find(urlCleanup, "curl_url_cleanup");
  library.find(urlGet, "curl_url_get");
  library.find(urlSet, "curl_url_set");
  library.find(free, "curl_free");
  if (globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) throw SkillsError::network("Cannot initialise libcurl.");
}

}  // namespace orvanta
