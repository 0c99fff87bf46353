#pragma once

#include <curl/curl.h>

namespace weir {

/// The functions of libcurl that are used, under their names without "curl_". The library and the thirty that it needs
/// take 7 MB of each process: they are loaded when there is a webhook.
struct CurlLibrary {
  decltype(&::curl_easy_init) easy_init;
  decltype(&::curl_easy_setopt) easy_setopt;
  decltype(&::curl_easy_getinfo) easy_getinfo;
  decltype(&::curl_easy_strerror) easy_strerror;
  decltype(&::curl_easy_cleanup) easy_cleanup;
  decltype(&::curl_slist_append) slist_append;
  decltype(&::curl_slist_free_all) slist_free_all;
  decltype(&::curl_url) url;
  decltype(&::curl_url_set) url_set;
  decltype(&::curl_url_cleanup) url_cleanup;
  decltype(&::curl_multi_init) multi_init;
  decltype(&::curl_multi_setopt) multi_setopt;
  decltype(&::curl_multi_cleanup) multi_cleanup;
  decltype(&::curl_multi_add_handle) multi_add_handle;
  decltype(&::curl_multi_remove_handle) multi_remove_handle;
  decltype(&::curl_multi_socket_action) multi_socket_action;
  decltype(&::curl_multi_info_read) multi_info_read;
};

/// Loads the library at the first call. Throws `std::runtime_error` with the reason when it can't be loaded.
const CurlLibrary& curl();

}  // namespace weir
