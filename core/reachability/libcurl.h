#pragma once

#include <curl/curl.h>

#include <string>

namespace holdenmere {

// libcurl, loaded when the first probe is made rather than when the
// executable starts. libcurl brings some thirty libraries with it (TLS,
// HTTP/2, IDN, Kerberos, LDAP, compression), and loading them costs more
// than everything else `--version`, `--help` or `--audit` does; only the
// network wait needs them. The functions are the few the probe calls.
struct Libcurl {
    CURLcode (*globalInit)(long flags);
    CURL* (*easyInit)();
    void (*easyCleanup)(CURL* handle);
    void (*easyReset)(CURL* handle);
    CURLcode (*easySetopt)(CURL* handle, CURLoption option, ...);
    CURLcode (*easyGetinfo)(CURL* handle, CURLINFO info, ...);
    CURLcode (*easyPerform)(CURL* handle);
    const char* (*easyStrerror)(CURLcode code);
    curl_slist* (*slistAppend)(curl_slist* list, const char* text);
    void (*slistFreeAll)(curl_slist* list);
    CURLU* (*urlNew)();
    void (*urlCleanup)(CURLU* handle);
    CURLUcode (*urlSet)(CURLU* handle, CURLUPart part, const char* content, unsigned int flags);
    CURLUcode (*urlGet)(const CURLU* handle, CURLUPart part, char** content, unsigned int flags);
    void (*freeText)(void* pointer);

    // The library, loaded and initialised once for the process; null when
    // it cannot be loaded, and then `loadError()` says why.
    static const Libcurl* shared();
    static const std::string& loadError();
};

}  // namespace holdenmere
