#pragma once

// The template half of Envelope.h; include that instead.

#include "KelvadromeKit/wire/Envelope.h"

namespace kelvadrome::Envelope {

template <class T>
T decode(const HTTPResponse& response) {
    const auto status = response.status;
    const bool success = status >= 200 && status <= 299;
    const auto read = [&](const JSONValue& root) -> T {
        throwFailure(root, status);
        if (!success)
            throwStatus(status);
        const auto envelope = root.object();
        const bool ok = envelope.required<bool>("ok");
        auto data = envelope.optional<T>("data");
        auto error = envelope.optional<ErrorBody>("error");
        if (ok && data)
            return std::move(*data);
        throwEmpty(std::move(error), status);
    };
    if (success)
        return readJSON(response.body, read, response.body.capacity());
    try {
        return readJSON(response.body, read, response.body.capacity());
    } catch (const DecodingError&) {
        throwStatus(status);
    }
}

} // namespace kelvadrome::Envelope
