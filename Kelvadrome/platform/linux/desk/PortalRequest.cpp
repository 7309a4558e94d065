#include "Kelvadrome/platform/linux/desk/PortalRequest.h"

#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

namespace kelvadrome {

namespace {

constexpr const char* requestInterface = "org.freedesktop.portal.Request";

/// One request from its call to its Response signal.
struct Request : std::enable_shared_from_this<Request> {
    Request(std::shared_ptr<SessionBus> on, Completion<PortalAnswer> finish)
        : bus(std::move(on)), completion(std::move(finish)), token(PortalRequest::token()),
          path(fmt::format("{}/request/{}/{}", PortalRequest::path,
              Text::replaceAll(Text::replaceAll(bus->name(), ":", ""), ".", "_"), token)) {}

    void start(const PortalRequest::Question& question) {
        // Before the call, whose answer may overtake its reply.
        heard = bus->listen({PortalRequest::service, path.c_str(), requestInterface}, "Response", "(ua{sv})",
            [self = shared_from_this()](GVariant* arguments) { self->answered(arguments); });
        GVariantBuilder options;
        g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
        g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
        bus->call({PortalRequest::service, PortalRequest::path, question.interface}, question.method,
            question.arguments(&options), "(o)", weak_from_this(),
            [self = weak_from_this()](GVariant* reply) {
                const auto request = self.lock();
                if (request && !reply)
                    request->end({PortalAnswer::noPortal, nullptr});
            },
            {.limit = static_cast<int>(question.limit * 1000)});
    }

    void answered(GVariant* arguments) {
        guint32 status = 0;
        GVariant* results = nullptr;
        g_variant_get(arguments, "(u@a{sv})", &status, &results);
        end({static_cast<std::int32_t>(status), std::shared_ptr<GVariant>(results, &g_variant_unref)});
    }

    void withdraw() {
        if (!heard)
            return; // over
        bus->tell({PortalRequest::service, path.c_str(), requestInterface}, "Close", nullptr);
        end({PortalAnswer::silent, nullptr});
    }

    void end(PortalAnswer answer) {
        const auto self = shared_from_this(); // the subscription may be the last to hold it
        heard.reset();
        completion(std::move(answer));
    }

    const std::shared_ptr<SessionBus> bus;
    const Completion<PortalAnswer> completion;
    const std::string token;
    const std::string path;
    std::optional<Subscription> heard;
};

Task<PortalAnswer> answerTo(std::shared_ptr<SessionBus> bus, PortalRequest::Question question) {
    auto start = [bus, question](Completion<PortalAnswer> completion) {
        const auto request = std::make_shared<Request>(bus, std::move(completion));
        request->start(question);
        return [request] { request->withdraw(); };
    };
    co_return co_await suspendUntil<PortalAnswer>(std::move(start));
}

} // namespace

std::optional<std::string> PortalAnswer::text(const char* key) const {
    const char* value = nullptr;
    if (!results || !(g_variant_lookup(results.get(), key, "&s", &value) ||
                        g_variant_lookup(results.get(), key, "&o", &value)))
        return std::nullopt;
    return value;
}

std::string PortalRequest::token() {
    static std::uint64_t count = 0;
    return fmt::format("kelvadrome{}", ++count);
}

Task<PortalAnswer> PortalRequest::ask(
    std::shared_ptr<SessionBus> bus, std::shared_ptr<Clock> clock, Question question) {
    using namespace asio::experimental::awaitable_operators;
    auto limit = clock->sleep(question.limit);
    auto answer = answerTo(std::move(bus), std::move(question));
    auto first = co_await (std::move(answer) || std::move(limit));
    if (auto* const answered = std::get_if<0>(&first))
        co_return std::move(*answered);
    co_return PortalAnswer{PortalAnswer::silent, nullptr};
}

} // namespace kelvadrome
