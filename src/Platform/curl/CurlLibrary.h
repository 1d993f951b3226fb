#pragma once

#include <curl/curl.h>

namespace veltry {

/// libcurl's functions. Linked at start it would cost each process 6 ms and 6 MB, also those that never make a request;
/// so it is loaded when it is first needed, and never let go.
struct CurlLibrary {
    /// Throws HTTPSession::Failure (unavailable); the next call tries again.
    [[nodiscard]] static const CurlLibrary& load();

    decltype(&curl_global_init) globalInit;
    decltype(&curl_easy_init) easyInit;
    decltype(&curl_easy_setopt) easySetopt;
    decltype(&curl_easy_getinfo) easyGetinfo;
    decltype(&curl_easy_strerror) easyStrerror;
    decltype(&curl_easy_cleanup) easyCleanup;
    decltype(&curl_slist_append) slistAppend;
    decltype(&curl_slist_free_all) slistFreeAll;
    decltype(&curl_multi_init) multiInit;
    decltype(&curl_multi_add_handle) multiAddHandle;
    decltype(&curl_multi_remove_handle) multiRemoveHandle;
    decltype(&curl_multi_perform) multiPerform;
    decltype(&curl_multi_info_read) multiInfoRead;
    decltype(&curl_multi_poll) multiPoll;
    decltype(&curl_multi_wakeup) multiWakeup;
    decltype(&curl_multi_cleanup) multiCleanup;
};

} // namespace veltry
