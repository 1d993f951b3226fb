#include "Platform/curl/CurlLibrary.h"

#include "Platform/HTTPSession.h"

#include <dlfcn.h>

#include <string>

namespace veltry {

namespace {

// "libcurl.so" comes with the development package alone.
constexpr const char* fileName = "libcurl.so.4";

[[noreturn]] void fail()
{
    const char* why = ::dlerror();
    throw HTTPSession::Failure(
        HTTPSession::Failure::Kind::unavailable,
        std::string("Requests to the network need libcurl (Debian's package libcurl4), which could not be loaded: ") +
            (why ? why : fileName));
}

template <typename Function>
void find(void* library, const char* name, Function*& function)
{
    function = reinterpret_cast<Function*>(::dlsym(library, name));
    if (!function)
        fail();
}

CurlLibrary loaded()
{
    void* library = ::dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
    if (!library)
        fail();
    CurlLibrary curl{};
    find(library, "curl_global_init", curl.globalInit);
    find(library, "curl_easy_init", curl.easyInit);
    find(library, "curl_easy_setopt", curl.easySetopt);
    find(library, "curl_easy_getinfo", curl.easyGetinfo);
    find(library, "curl_easy_strerror", curl.easyStrerror);
    find(library, "curl_easy_cleanup", curl.easyCleanup);
    find(library, "curl_slist_append", curl.slistAppend);
    find(library, "curl_slist_free_all", curl.slistFreeAll);
    find(library, "curl_multi_init", curl.multiInit);
    find(library, "curl_multi_add_handle", curl.multiAddHandle);
    find(library, "curl_multi_remove_handle", curl.multiRemoveHandle);
    find(library, "curl_multi_perform", curl.multiPerform);
    find(library, "curl_multi_info_read", curl.multiInfoRead);
    find(library, "curl_multi_poll", curl.multiPoll);
    find(library, "curl_multi_wakeup", curl.multiWakeup);
    find(library, "curl_multi_cleanup", curl.multiCleanup);
    if (curl.globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK)
        throw HTTPSession::Failure(HTTPSession::Failure::Kind::unavailable, "libcurl could not be set up.");
    return curl;
}

} // namespace

const CurlLibrary& CurlLibrary::load()
{
    // Where loading throws, this stays unset, and the next call tries again.
    static const CurlLibrary library = loaded();
    return library;
}

} // namespace veltry
