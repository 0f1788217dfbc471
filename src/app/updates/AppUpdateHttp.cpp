#include "app/updates/AppUpdateHttp.h"

#include "app/updates/AppUpdateError.h"

#include <curl/curl.h>
#include <memory>

namespace rilo::app {
namespace {

// libcurl wants one global initialisation before any handle; a
// function-local static runs it exactly once, on whichever thread comes first.
void ensureCurlInitialised() {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (initialised != CURLE_OK) {
        throw AppUpdateConnectionError("无法连接更新服务器。");
    }
}

struct EasyHandleDeleter {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
using EasyHandle = std::unique_ptr<CURL, EasyHandleDeleter>;

struct UrlHandleDeleter {
    void operator()(CURLU* handle) const noexcept { curl_url_cleanup(handle); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlHandleDeleter>;

struct CurlStringDeleter {
    void operator()(char* text) const noexcept { curl_free(text); }
};

struct Transfer {
    std::string body;
    std::size_t maximumBodyBytes = 0;
    bool bodyTooLarge = false;
    std::stop_token stopToken;
};

std::size_t receiveBody(char* data, std::size_t size, std::size_t count, void* context) {
    auto& transfer = *static_cast<Transfer*>(context);
    const std::size_t bytes = size * count;
    if (transfer.body.size() + bytes > transfer.maximumBodyBytes) {
        transfer.bodyTooLarge = true;
        return 0; // makes libcurl stop with CURLE_WRITE_ERROR
    }
    transfer.body.append(data, bytes);
    return bytes;
}

int reportProgress(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const auto& transfer = *static_cast<const Transfer*>(context);
    return transfer.stopToken.stop_requested() ? 1 : 0;
}

template <class Value>
void setOption(CURL* handle, CURLoption option, Value value) {
    if (curl_easy_setopt(handle, option, value) != CURLE_OK) {
        throw AppUpdateConnectionError("无法连接更新服务器。");
    }
}

[[noreturn]] void throwTransferFailure(CURLcode code, const Transfer& transfer) {
    if (transfer.stopToken.stop_requested()) {
        throw CancellationError();
    }
    switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
        throw AppUpdateConnectionError("连接更新服务器超时。");
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
        throw AppUpdateConnectionError("无法与更新服务器建立安全连接。");
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_FILESIZE_EXCEEDED:
    case CURLE_TOO_MANY_REDIRECTS:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
        throw AppUpdateError::invalidResponse();
    case CURLE_WRITE_ERROR:
        if (transfer.bodyTooLarge) {
            throw AppUpdateError::invalidResponse();
        }
        break;
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
        throw AppUpdateConnectionError("与更新服务器的连接中断。");
    default:
        break;
    }
    throw AppUpdateConnectionError("无法连接更新服务器。");
}

} // namespace

HttpAnswer httpGet(const std::string& url, std::chrono::milliseconds connectTimeout,
                   std::chrono::milliseconds totalTimeout, std::size_t maximumBodyBytes,
                   const std::string& userAgent, std::stop_token stopToken) {
    ensureCurlInitialised();
    const EasyHandle handle(curl_easy_init());
    if (!handle) {
        throw AppUpdateConnectionError("无法连接更新服务器。");
    }
    Transfer transfer{.body = {},
                      .maximumBodyBytes = maximumBodyBytes,
                      .bodyTooLarge = false,
                      .stopToken = std::move(stopToken)};
    CURL* const easy = handle.get();
    setOption(easy, CURLOPT_URL, url.c_str());
    setOption(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    setOption(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    setOption(easy, CURLOPT_FOLLOWLOCATION, 1L);
    setOption(easy, CURLOPT_MAXREDIRS, 5L);
    // No signals: this runs on a worker thread of a program with its own handlers.
    setOption(easy, CURLOPT_NOSIGNAL, 1L);
    setOption(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connectTimeout.count()));
    setOption(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(totalTimeout.count()));
    setOption(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(maximumBodyBytes));
    setOption(easy, CURLOPT_ACCEPT_ENCODING, "");
    setOption(easy, CURLOPT_USERAGENT, userAgent.c_str());
    setOption(easy, CURLOPT_WRITEFUNCTION, &receiveBody);
    setOption(easy, CURLOPT_WRITEDATA, static_cast<void*>(&transfer));
    setOption(easy, CURLOPT_XFERINFOFUNCTION, &reportProgress);
    setOption(easy, CURLOPT_XFERINFODATA, static_cast<void*>(&transfer));
    setOption(easy, CURLOPT_NOPROGRESS, 0L);

    const CURLcode result = curl_easy_perform(easy);
    if (result != CURLE_OK) {
        throwTransferFailure(result, transfer);
    }
    long statusCode = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &statusCode);
    return HttpAnswer{.statusCode = statusCode, .body = std::move(transfer.body)};
}

std::optional<std::string> resolveHttpURL(const std::string& base, const std::string& reference) {
    ensureCurlInitialised();
    const UrlHandle url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, base.c_str(), 0) != CURLUE_OK ||
        curl_url_set(url.get(), CURLUPART_URL, reference.c_str(), 0) != CURLUE_OK) {
        return std::nullopt;
    }
    char* scheme = nullptr;
    if (curl_url_get(url.get(), CURLUPART_SCHEME, &scheme, 0) != CURLUE_OK) {
        return std::nullopt;
    }
    const std::unique_ptr<char, CurlStringDeleter> ownedScheme(scheme);
    if (std::string_view(scheme) != "http" && std::string_view(scheme) != "https") {
        return std::nullopt;
    }
    char* resolved = nullptr;
    if (curl_url_get(url.get(), CURLUPART_URL, &resolved, 0) != CURLUE_OK) {
        return std::nullopt;
    }
    const std::unique_ptr<char, CurlStringDeleter> ownedResolved(resolved);
    return std::string(resolved);
}

} // namespace rilo::app
