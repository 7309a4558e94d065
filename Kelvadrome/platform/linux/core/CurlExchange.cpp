#include "Kelvadrome/platform/linux/core/CurlExchange.h"

#include "KelvadromeKit/support/Text.h"

#include <curl/curl.h>

#include <atomic>
#include <memory>
#include <stdexcept>

namespace kelvadrome {

namespace {

using EasyHandle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;
using MultiHandle = std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)>;
using HeaderList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

constexpr int pollLimitMs = 1000;         // a wake-up ends the wait at once; this is only its upper limit
constexpr std::size_t maxBody = 64 << 20; // bytes

std::size_t takeBody(char* data, std::size_t size, std::size_t count, void* to) {
    auto& body = static_cast<HTTPResponse*>(to)->body;
    if (body.size() + size * count > maxBody)
        return 0; // ends the exchange with an error
    body.append(data, size * count);
    return size * count;
}

std::size_t takeHeader(char* data, std::size_t size, std::size_t count, void* to) {
    const std::string_view line(data, size * count);
    auto& response = *static_cast<HTTPResponse*>(to);
    // A reply after "100 Continue" begins a head of its own.
    if (line.starts_with("HTTP/"))
        response.headers.clear();
    if (const auto colon = line.find(':'); colon != std::string_view::npos) {
        const auto key = Text::lowercasedASCII(Text::trimBlanks(line.substr(0, colon)));
        const std::string value(Text::trimWhitespace(line.substr(colon + 1)));
        const auto [held, fresh] = response.headers.emplace(key, value);
        if (!fresh && key != "set-cookie")
            held->second += ", " + value;
    }
    return line.size();
}

/// One exchange, run on a pool thread and cancelled from any other.
class Exchange {
public:
    Exchange(HTTPRequest request, CurlRules rules)
        : request_(std::move(request)), rules_(std::move(rules)),
          multi_(curl_multi_init(), &curl_multi_cleanup), easy_(curl_easy_init(), &curl_easy_cleanup),
          headers_(nullptr, &curl_slist_free_all) {}

    void cancel() {
        cancelled_ = true;
        curl_multi_wakeup(multi_.get());
    }

    HTTPResponse run() {
        if (!multi_ || !easy_)
            throw std::runtime_error("libcurl could not be set up");
        configure();
        curl_multi_add_handle(multi_.get(), easy_.get());
        const auto code = loop();
        curl_multi_remove_handle(multi_.get(), easy_.get());
        if (cancelled_)
            throw boost::system::system_error(asio::error::operation_aborted);
        if (refusal_)
            throw NotConnected(*refusal_);
        if (code == CURLE_COULDNT_CONNECT || (code == CURLE_OPERATION_TIMEDOUT && !connected_))
            throw NotConnected(curl_easy_strerror(code));
        if (code != CURLE_OK)
            throw std::runtime_error(curl_easy_strerror(code));
        long status = 0;
        curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        response_.status = status;
        return std::move(response_);
    }

private:
    /// libcurl asks when the connection stands and nothing was sent over it.
    static int mayBegin(void* self, char* peer, char* own, int peerPort, int ownPort) {
        auto& exchange = *static_cast<Exchange*>(self);
        try {
            exchange.connected_ = true;
            if (exchange.rules_.peers)
                exchange.refusal_ = exchange.rules_.peers->refusal(
                    {peer, static_cast<std::uint16_t>(peerPort), own, static_cast<std::uint16_t>(ownPort)});
        } catch (const std::exception& error) { // none may cross the library
            exchange.refusal_ = error.what();
        }
        return exchange.refusal_ ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
    }

    void configure() {
        auto* handle = easy_.get();
        curl_easy_setopt(handle, CURLOPT_URL, request_.url.c_str());
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, rules_.protocols);
        curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
        if (!rules_.proxy)
            curl_easy_setopt(handle, CURLOPT_PROXY, ""); // not the environment's either
        curl_easy_setopt(
            handle, CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE)); // a proxy gets none
        // A reply without a head is all body, and its status 0.
        curl_easy_setopt(handle, CURLOPT_HTTP09_ALLOWED, rules_.headless ? 1L : 0L);
        curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
        curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(request_.timeout * 1000));
        curl_easy_setopt(handle, CURLOPT_PREREQFUNCTION, &mayBegin);
        curl_easy_setopt(handle, CURLOPT_PREREQDATA, this);
        curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &takeBody);
        curl_easy_setopt(handle, CURLOPT_WRITEDATA, &response_);
        curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &takeHeader);
        curl_easy_setopt(handle, CURLOPT_HEADERDATA, &response_);
        if (request_.method == "POST" && !request_.body)
            request_.body.emplace();
        if (request_.body) {
            const auto size = static_cast<curl_off_t>(request_.body->size());
            curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, size);
            curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request_.body->c_str());
        }
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
        addHeader("Expect:");
        for (const auto& [key, value] : request_.headers) {
            if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
                throw std::runtime_error("the value of " + key + " can't stand in a header");
            // libcurl takes "Key:" for "leave it out" and "Key;" for "send it empty".
            addHeader(value.empty() ? key + ";" : key + ": " + value);
        }
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers_.get());
    }

    void addHeader(const std::string& line) {
        headers_.reset(curl_slist_append(headers_.release(), line.c_str()));
    }

    CURLcode loop() {
        int running = 1;
        while (running > 0 && !cancelled_) {
            if (curl_multi_perform(multi_.get(), &running) != CURLM_OK)
                return CURLE_FAILED_INIT;
            if (running > 0)
                curl_multi_poll(multi_.get(), nullptr, 0, pollLimitMs, nullptr);
        }
        int left = 0;
        const auto* message = curl_multi_info_read(multi_.get(), &left);
        return message && message->msg == CURLMSG_DONE ? message->data.result : CURLE_ABORTED_BY_CALLBACK;
    }

    HTTPRequest request_;
    CurlRules rules_;
    bool connected_ = false;
    std::optional<std::string> refusal_; // of the peer; nothing was sent
    HTTPResponse response_;
    MultiHandle multi_; // declared before the easy handle, which must go first
    EasyHandle easy_;
    HeaderList headers_;
    std::atomic<bool> cancelled_ = false;
};

} // namespace

Task<HTTPResponse> curlExchange(BackgroundPool& pool, HTTPRequest request, CurlRules rules) {
    // Once a process, before any thread uses it.
    static const auto ready = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (ready != CURLE_OK)
        throw std::runtime_error(curl_easy_strerror(ready));
    auto running = std::make_shared<Exchange>(std::move(request), std::move(rules));
    const auto run = [running] { return running->run(); };
    const auto cancel = [running] { running->cancel(); };
    co_return co_await pool.run(run, cancel);
}

} // namespace kelvadrome
