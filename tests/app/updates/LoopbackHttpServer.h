#pragma once

// A small HTTP/1.1 server on 127.0.0.1 with a port the system picks, for
// tests of code that speaks HTTP. It runs on its own thread and answers
// each connection once, from a table of canned answers by path (404 for a
// path not in the table), then closes it. An answer can also be raw bytes
// that are not HTTP, never come (the connection is held open, unanswered),
// or wait until the test releases it. stop() closes the port, so that a
// connection is refused. Destroying the server stops it and closes every
// connection it holds.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace rilo::testing {

struct CannedAnswer {
    enum class Kind {
        http,
        // `body` is sent as it is, with no status line or headers.
        raw,
        // Nothing is ever sent.
        hang,
        // Sent as http once releaseHeldAnswers() is called.
        held,
    };

    Kind kind = Kind::http;
    int statusCode = 200;
    std::string body;

    static CannedAnswer json(std::string body) { return {Kind::http, 200, std::move(body)}; }
    static CannedAnswer status(int statusCode) { return {Kind::http, statusCode, "error"}; }
    static CannedAnswer raw(std::string bytes) { return {Kind::raw, 0, std::move(bytes)}; }
    static CannedAnswer hang() { return {Kind::hang, 0, {}}; }
    static CannedAnswer held(std::string body) { return {Kind::held, 200, std::move(body)}; }
};

class LoopbackHttpServer {
public:
    LoopbackHttpServer();
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    void answer(const std::string& path, CannedAnswer answer);
    // "http://127.0.0.1:<port><path>"
    std::string url(const std::string& path) const;

    int requestCount(const std::string& path) const;
    // Waits until `path` has been asked for `count` times, or 10 s.
    bool waitForRequests(const std::string& path, int count);
    void releaseHeldAnswers();
    void stop();

private:
    void serve();
    void handle(int connection);
    void send(int connection, const CannedAnswer& answer);

    int listener_ = -1;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;
    std::uint16_t port_ = 0;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, CannedAnswer> answers_;
    std::map<std::string, int> requestCounts_;
    std::vector<int> heldConnections_;
    bool released_ = false;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace rilo::testing
