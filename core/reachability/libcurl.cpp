#include "core/reachability/libcurl.h"

#include <dlfcn.h>

#include <mutex>
#include <optional>

namespace holdenmere {
namespace {

#ifndef HOLDENMERE_LIBCURL_NAME
#if defined(__APPLE__)
#define HOLDENMERE_LIBCURL_NAME "libcurl.4.dylib"
#else
#define HOLDENMERE_LIBCURL_NAME "libcurl.so.4"
#endif
#endif

struct Loaded {
    std::optional<Libcurl> library;
    std::string error;
};

template <typename Function>
bool resolve(void* handle, const char* name, Function& function, std::string& error) {
    void* symbol = ::dlsym(handle, name);
    if (symbol == nullptr) {
        error = std::string(HOLDENMERE_LIBCURL_NAME " has no ") + name;
        return false;
    }
    // POSIX guarantees that a data pointer from dlsym converts to a function pointer.
    function = reinterpret_cast<Function>(symbol);
    return true;
}

Loaded load() {
    Loaded loaded;
    // Never unloaded: abandoned probe attempts may still be running in it
    // when the process ends.
    void* handle = ::dlopen(HOLDENMERE_LIBCURL_NAME, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = ::dlerror();
        loaded.error = why != nullptr ? why : "could not load " HOLDENMERE_LIBCURL_NAME;
        return loaded;
    }
    Libcurl curl{};
    std::string& error = loaded.error;
    const bool complete = resolve(handle, "curl_global_init", curl.globalInit, error) &&
                          resolve(handle, "curl_easy_init", curl.easyInit, error) &&
                          resolve(handle, "curl_easy_cleanup", curl.easyCleanup, error) &&
                          resolve(handle, "curl_easy_reset", curl.easyReset, error) &&
                          resolve(handle, "curl_easy_setopt", curl.easySetopt, error) &&
                          resolve(handle, "curl_easy_getinfo", curl.easyGetinfo, error) &&
                          resolve(handle, "curl_easy_perform", curl.easyPerform, error) &&
                          resolve(handle, "curl_easy_strerror", curl.easyStrerror, error) &&
                          resolve(handle, "curl_slist_append", curl.slistAppend, error) &&
                          resolve(handle, "curl_slist_free_all", curl.slistFreeAll, error) &&
                          resolve(handle, "curl_url", curl.urlNew, error) &&
                          resolve(handle, "curl_url_cleanup", curl.urlCleanup, error) &&
                          resolve(handle, "curl_url_set", curl.urlSet, error) &&
                          resolve(handle, "curl_url_get", curl.urlGet, error) &&
                          resolve(handle, "curl_free", curl.freeText, error);
    if (!complete) return loaded;
    if (const CURLcode code = curl.globalInit(CURL_GLOBAL_DEFAULT); code != CURLE_OK) {
        loaded.error = std::string("libcurl could not start: ") + curl.easyStrerror(code);
        return loaded;
    }
    loaded.library = curl;
    return loaded;
}

const Loaded& loadedOnce() {
    static const Loaded loaded = load();
    return loaded;
}

}  // namespace

const Libcurl* Libcurl::shared() {
    const Loaded& loaded = loadedOnce();
    return loaded.library ? &*loaded.library : nullptr;
}

const std::string& Libcurl::loadError() { return loadedOnce().error; }

}  // namespace holdenmere
