#include "LoopbackHttpServer.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace rilo::testing {
namespace {

void sendAll(int connection, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t written = ::send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (written <= 0) {
            if (written < 0 && errno == EINTR) {
                continue;
            }
            return;
        }
        sent += static_cast<std::size_t>(written);
    }
}

// The path of the request line, or empty when the request never completes.
std::string readRequestPath(int connection) {
    std::string request;
    char buffer[4096];
    while (request.find("\r\n\r\n") == std::string::npos) {
        pollfd readable{connection, POLLIN, 0};
        if (::poll(&readable, 1, 5000) <= 0) {
            return {};
        }
        const ssize_t received = ::recv(connection, buffer, sizeof buffer, 0);
        if (received <= 0) {
            return {};
        }
        request.append(buffer, static_cast<std::size_t>(received));
    }
    const auto firstSpace = request.find(' ');
    const auto secondSpace = request.find(' ', firstSpace + 1);
    if (firstSpace == std::string::npos || secondSpace == std::string::npos) {
        return {};
    }
    return request.substr(firstSpace + 1, secondSpace - firstSpace - 1);
}

std::string reasonPhrase(int statusCode) {
    return statusCode == 200 ? "OK" : "Error";
}

} // namespace

LoopbackHttpServer::LoopbackHttpServer() {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    int pipeEnds[2];
    if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener_, 16) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        ::pipe2(pipeEnds, O_CLOEXEC) != 0) {
        if (listener_ >= 0) {
            ::close(listener_);
        }
        throw std::runtime_error("the loopback HTTP server cannot start");
    }
    port_ = ntohs(address.sin_port);
    wakeRead_ = pipeEnds[0];
    wakeWrite_ = pipeEnds[1];
    thread_ = std::thread([this] { serve(); });
}

LoopbackHttpServer::~LoopbackHttpServer() {
    stop();
    ::close(wakeRead_);
    ::close(wakeWrite_);
}

void LoopbackHttpServer::answer(const std::string& path, CannedAnswer answer) {
    const std::lock_guard lock(mutex_);
    answers_[path] = std::move(answer);
}

std::string LoopbackHttpServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

int LoopbackHttpServer::requestCount(const std::string& path) const {
    const std::lock_guard lock(mutex_);
    const auto found = requestCounts_.find(path);
    return found == requestCounts_.end() ? 0 : found->second;
}

bool LoopbackHttpServer::waitForRequests(const std::string& path, int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return requestCounts_[path] >= count; });
}

void LoopbackHttpServer::releaseHeldAnswers() {
    const std::lock_guard lock(mutex_);
    released_ = true;
    changed_.notify_all();
}

void LoopbackHttpServer::stop() {
    {
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            return;
        }
        stopping_ = true;
        changed_.notify_all();
    }
    const char wake = 1;
    [[maybe_unused]] const auto written = ::write(wakeWrite_, &wake, 1);
    thread_.join();
    ::close(listener_);
    for (const int connection : heldConnections_) {
        ::close(connection);
    }
    heldConnections_.clear();
}

void LoopbackHttpServer::serve() {
    while (true) {
        pollfd waiting[2] = {{listener_, POLLIN, 0}, {wakeRead_, POLLIN, 0}};
        if (::poll(waiting, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (waiting[1].revents != 0) {
            return;
        }
        const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0) {
            handle(connection);
        }
    }
}

void LoopbackHttpServer::handle(int connection) {
    const std::string path = readRequestPath(connection);
    CannedAnswer answer = CannedAnswer::status(404);
    {
        const std::lock_guard lock(mutex_);
        ++requestCounts_[path];
        changed_.notify_all();
        if (const auto found = answers_.find(path); found != answers_.end()) {
            answer = found->second;
        }
    }
    if (answer.kind == CannedAnswer::Kind::hang) {
        heldConnections_.push_back(connection);
        return;
    }
    if (answer.kind == CannedAnswer::Kind::held) {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return released_ || stopping_; });
    }
    send(connection, answer);
    ::shutdown(connection, SHUT_WR);
    ::close(connection);
}

void LoopbackHttpServer::send(int connection, const CannedAnswer& answer) {
    if (answer.kind == CannedAnswer::Kind::raw) {
        sendAll(connection, answer.body);
        return;
    }
    sendAll(connection,
            "HTTP/1.1 " + std::to_string(answer.statusCode) + " " + reasonPhrase(answer.statusCode) +
                "\r\nContent-Type: application/json\r\nContent-Length: " +
                std::to_string(answer.body.size()) + "\r\nConnection: close\r\n\r\n" + answer.body);
}

} // namespace rilo::testing
