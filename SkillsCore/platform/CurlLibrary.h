#pragma once

// libcurl as the HTTP client and the reader of addresses call it: its functions, looked up in the system's library, and
// owners of its handles.

#include <memory>

#include <curl/curl.h>

namespace orvanta {

struct CurlLibrary {
  // Loaded and initialised by the first call; any thread may make it. Throws `network` where the system has no libcurl.
  static const CurlLibrary& get();

  decltype(&curl_global_init) globalInit;
  decltype(&curl_easy_init) easyInit;
  decltype(&curl_easy_cleanup) easyCleanup;
  decltype(&curl_easy_setopt) easySetopt;
  decltype(&curl_easy_getinfo) easyGetinfo;
  decltype(&curl_easy_strerror) easyStrerror;
  decltype(&curl_multi_init) multiInit;
  decltype(&curl_multi_cleanup) multiCleanup;
  decltype(&curl_multi_add_handle) multiAddHandle;
  decltype(&curl_multi_remove_handle) multiRemoveHandle;
  decltype(&curl_multi_perform) multiPerform;
  decltype(&curl_multi_poll) multiPoll;
  decltype(&curl_multi_info_read) multiInfoRead;
  decltype(&curl_slist_append) slistAppend;
  decltype(&curl_slist_free_all) slistFreeAll;
  decltype(&curl_url) urlInit;
  decltype(&curl_url_cleanup) urlCleanup;
  decltype(&curl_url_get) urlGet;
  decltype(&curl_url_set) urlSet;
  decltype(&curl_free) free;

 private:
  CurlLibrary();
};

// CURL and CURLM may be one type, so each needs a deleter of its own.
struct CurlEasyDeleter {
  void operator()(CURL* handle) const { CurlLibrary::get().easyCleanup(handle); }
};
struct CurlMultiDeleter {
  void operator()(CURLM* handle) const { CurlLibrary::get().multiCleanup(handle); }
};
struct CurlListDeleter {
  void operator()(curl_slist* list) const { CurlLibrary::get().slistFreeAll(list); }
};

struct CurlURLDeleter {
  void operator()(CURLU* url) const { CurlLibrary::get().urlCleanup(url); }
};
struct CurlTextDeleter {
  void operator()(char* text) const { CurlLibrary::get().free(text); }
};

using CurlEasy = std::unique_ptr<CURL, CurlEasyDeleter>;
using CurlMulti = std::unique_ptr<CURLM, CurlMultiDeleter>;
using CurlList = std::unique_ptr<curl_slist, CurlListDeleter>;
using CurlURL = std::unique_ptr<CURLU, CurlURLDeleter>;
using CurlText = std::unique_ptr<char, CurlTextDeleter>;

}  // namespace orvanta
