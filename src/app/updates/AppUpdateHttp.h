#pragma once

// The HTTP(S) transport of the update check, through libcurl's easy
// interface. One call is one GET on the calling thread; it blocks until the
// answer is complete, a limit is reached or `stopToken` is triggered (seen
// at least once a second).
//
// Failures: no connection, a failed TLS handshake or a timeout throw
// AppUpdateConnectionError; an answer that is not HTTP, or a body over
// `maximumBodyBytes`, throws AppUpdateError::invalidResponse; a stop throws
// CancellationError. A status other than 2xx is not a failure here.

#include <chrono>
#include <cstddef>
#include <optional>
#include <stop_token>
#include <string>

namespace rilo::app {

struct AppUpdateTransportLimits {
    std::chrono::milliseconds connectTimeout;
    // The whole exchange, connection included.
    std::chrono::milliseconds totalTimeout;
    std::size_t maximumMetadataBytes = 0;
    std::size_t maximumReleaseNotesBytes = 0;
};

struct HttpAnswer {
    long statusCode = 0;
    std::string body;
};

HttpAnswer httpGet(const std::string& url, std::chrono::milliseconds connectTimeout,
                   std::chrono::milliseconds totalTimeout, std::size_t maximumBodyBytes,
                   const std::string& userAgent, std::stop_token stopToken);

// `reference` resolved against `base` as a browser would ("b.json" beside
// the base, "/b.json" at its root, or an absolute URL). Empty when the
// result is not an http or https URL.
std::optional<std::string> resolveHttpURL(const std::string& base, const std::string& reference);

} // namespace rilo::app
