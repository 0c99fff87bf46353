#include "backend/web/events/curl_library.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace weir {

namespace {

// Stays loaded until the process ends.
void* open_library() {
  void* library = ::dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
  if (!library) throw std::runtime_error(std::string("webhooks need libcurl: ") + ::dlerror());
  return library;
}

template <class Function>
void find(void* library, Function*& function, const char* name) {
  void* address = ::dlsym(library, name);
  if (!address) throw std::runtime_error(std::string("libcurl has no ") + name);
  function = reinterpret_cast<Function*>(address);
}

CurlLibrary load() {
  void* library = open_library();
  decltype(&::curl_global_init) global_init = nullptr;
  find(library, global_init, "curl_global_init");
  CurlLibrary curl{};
  find(library, curl.easy_init, "curl_easy_init");
  find(library, curl.easy_setopt, "curl_easy_setopt");
  find(library, curl.easy_getinfo, "curl_easy_getinfo");
  find(library, curl.easy_strerror, "curl_easy_strerror");
  find(library, curl.easy_cleanup, "curl_easy_cleanup");
  find(library, curl.slist_append, "curl_slist_append");
  find(library, curl.slist_free_all, "curl_slist_free_all");
  find(library, curl.url, "curl_url");
  find(library, curl.url_set, "curl_url_set");
  find(library, curl.url_cleanup, "curl_url_cleanup");
  find(library, curl.multi_init, "curl_multi_init");
  find(library, curl.multi_setopt, "curl_multi_setopt");
  find(library, curl.multi_cleanup, "curl_multi_cleanup");
  find(library, curl.multi_add_handle, "curl_multi_add_handle");
  find(library, curl.multi_remove_handle, "curl_multi_remove_handle");
  find(library, curl.multi_socket_action, "curl_multi_socket_action");
  find(library, curl.multi_info_read, "curl_multi_info_read");
  if (const CURLcode result = global_init(CURL_GLOBAL_DEFAULT); result != CURLE_OK)
    throw std::runtime_error(curl.easy_strerror(result));
  return curl;
}

}  // namespace

const CurlLibrary& curl() {
  static const CurlLibrary library = load();
  return library;
}

}  // namespace weir
