#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

#include <string>
#include <thread>

namespace kelvadrome::bench {

/// Answers every connection on a Unix socket with the same reply and closes it, as the daemon does. One
/// thread, blocking calls.
class LocalServer {
public:
    explicit LocalServer(std::string body);
    ~LocalServer();
    LocalServer(const LocalServer&) = delete;
    LocalServer& operator=(const LocalServer&) = delete;

    const std::string& path() const { return path_; }

private:
    void serve();

    const std::string path_;
    boost::beast::http::response<boost::beast::http::string_body> reply_;
    boost::asio::io_context context_;
    boost::asio::local::stream_protocol::acceptor acceptor_{context_};
    std::thread thread_;
};

} // namespace kelvadrome::bench
