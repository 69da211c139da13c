// test_server.h - a small HTTP/1.1 server on 127.0.0.1 for the fetching
// tests: an ephemeral port, one thread a connection, and answers made by a
// function of the request path. An answer may leave out its length, lie about
// it, redirect, or stall until the server stops.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct test_response_t {
    int status = 200;
    std::string body;
    std::string headers;            // extra header lines, each ending in \r\n
    bool send_length = true;        // Content-Length of the body
    long long claimed_length = -1;  // a Content-Length to send instead (a lie)
    bool stall = false;             // after `stall_after` body bytes, wait until the server stops
    size_t stall_after = 0;
    bool endless = false;           // after the body, send it again and again until the server stops
    int trickle_ms = 0;             // after the body, one byte every so many ms until the server stops
};

class test_server_t {
  public:
    using handler_t = std::function<test_response_t(const std::string &path)>;

    explicit test_server_t(handler_t handler) : handler_(std::move(handler)) {
        listener_ = socket(AF_INET, SOCK_STREAM, 0);
        int one = 1;
        setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = 0;
        bind(listener_, (sockaddr *)&address, sizeof(address));
        listen(listener_, 256);
        socklen_t size = sizeof(address);
        getsockname(listener_, (sockaddr *)&address, &size);
        port_ = ntohs(address.sin_port);
        acceptor_ = std::thread([this] { accept_loop(); });
    }

    ~test_server_t() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        stop_signal_.notify_all();
        acceptor_.join();
        for (auto &t : connections_) t.join();
        close(listener_);
    }

    std::string url(const std::string &path) const {
        return "http://127.0.0.1:" + std::to_string(port_) + path;
    }

    // Requests seen so far, by path, and the last user agent.
    int hits(const std::string &path) {
        std::lock_guard<std::mutex> lock(mutex_);
        return hits_[path];
    }
    std::string last_user_agent() {
        std::lock_guard<std::mutex> lock(mutex_);
        return user_agent_;
    }

  private:
    void accept_loop() {
        for (;;) {
            {
                std::lock_guard<std::mutex> lock(mutex_);
                if (stopping_) return;
            }
            pollfd p = {listener_, POLLIN, 0};
            if (poll(&p, 1, 50) <= 0) continue;
            int client = accept(listener_, nullptr, nullptr);
            if (client < 0) continue;
            connections_.emplace_back([this, client] { serve(client); });
        }
    }

    static bool send_all(int socket, const char *data, size_t size) {
        while (size) {
            ssize_t n = send(socket, data, size, MSG_NOSIGNAL);
            if (n <= 0) return false;
            data += n;
            size -= (size_t)n;
        }
        return true;
    }

    void serve(int client) {
        std::string request;
        char buffer[4096];
        while (request.find("\r\n\r\n") == std::string::npos) {
            ssize_t n = recv(client, buffer, sizeof(buffer), 0);
            if (n <= 0) break;
            request.append(buffer, (size_t)n);
        }
        size_t space = request.find(' ');
        size_t space2 = request.find(' ', space + 1);
        std::string path = space == std::string::npos ? "" : request.substr(space + 1, space2 - space - 1);
        std::string agent;
        size_t ua = request.find("User-Agent: ");
        if (ua != std::string::npos) agent = request.substr(ua + 12, request.find("\r\n", ua) - ua - 12);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            hits_[path]++;
            user_agent_ = agent;
        }
        test_response_t r = handler_(path);
        std::string head = "HTTP/1.1 " + std::to_string(r.status) + " X\r\nConnection: close\r\n" + r.headers;
        if (r.claimed_length >= 0) head += "Content-Length: " + std::to_string(r.claimed_length) + "\r\n";
        else if (r.send_length) head += "Content-Length: " + std::to_string(r.body.size()) + "\r\n";
        head += "\r\n";
        bool ok = send_all(client, head.data(), head.size());
        size_t count = r.stall ? std::min(r.stall_after, r.body.size()) : r.body.size();
        if (ok) ok = send_all(client, r.body.data(), count);
        while (ok && (r.endless || r.trickle_ms) && !stopping()) {
            if (r.trickle_ms) std::this_thread::sleep_for(std::chrono::milliseconds(r.trickle_ms));
            ok = r.trickle_ms ? send_all(client, "x", 1) : send_all(client, r.body.data(), r.body.size());
        }
        if (r.stall) {
            std::unique_lock<std::mutex> lock(mutex_);
            stop_signal_.wait(lock, [this] { return stopping_; });
        }
        shutdown(client, SHUT_WR);
        close(client);
    }

    bool stopping() {
        std::lock_guard<std::mutex> lock(mutex_);
        return stopping_;
    }

    handler_t handler_;
    int listener_ = -1;
    int port_ = 0;
    std::thread acceptor_;
    std::vector<std::thread> connections_;
    std::mutex mutex_;
    std::condition_variable stop_signal_;
    bool stopping_ = false;
    std::map<std::string, int> hits_;
    std::string user_agent_;
};

// Documents by path, changeable between requests; other paths give a 404
// page. While held, answers wait (to look at slots in flight).
struct test_site_t {
    std::mutex mutex;
    std::condition_variable gate;
    bool held = false;
    std::map<std::string, std::string> pages;
    void set(const std::string &path, const std::string &body) {
        std::lock_guard<std::mutex> lock(mutex);
        pages[path] = body;
    }
    void hold(bool on) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            held = on;
        }
        gate.notify_all();
    }
    test_server_t::handler_t handler() {
        return [this](const std::string &path) {
            std::unique_lock<std::mutex> lock(mutex);
            gate.wait(lock, [this] { return !held; });
            test_response_t r;
            auto it = pages.find(path);
            if (it == pages.end()) r.status = 404, r.body = "<html><body>Not found</body></html>";
            else r.body = it->second;
            return r;
        };
    }
};

// An RSS 2.0 document: items as (guid, title, pubDate) triples.
struct test_item_t {
    std::string guid, title, date;
};

inline std::string test_rss(const std::string &title, const std::vector<test_item_t> &items) {
    std::string s = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<rss version=\"2.0\"><channel><title>" + title +
                    "</title><link>http://example.org/</link>\n";
    for (const auto &i : items) {
        s += "<item><title>" + i.title + "</title><guid>" + i.guid + "</guid>";
        if (!i.date.empty()) s += "<pubDate>" + i.date + "</pubDate>";
        s += "</item>\n";
    }
    return s + "</channel></rss>\n";
}
