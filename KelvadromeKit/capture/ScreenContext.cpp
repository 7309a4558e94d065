#include "KelvadromeKit/capture/ScreenContext.h"

#include "KelvadromeKit/capture/ShotID.h"
#include "KelvadromeKit/support/Log.h"

namespace kelvadrome {

namespace {

using Kind = CaptureOutcome::Kind;
constexpr std::int64_t minBytes = 9; // the signature and something more
constexpr double day = 86400;        // seconds

} // namespace

Task<CaptureOutcome> ScreenContext::capture(CaptureTarget target, std::size_t attached) {
    const auto self = shared_from_this();
    if (attached >= static_cast<std::size_t>(maxShots))
        co_return CaptureOutcome{Kind::limit, {}};
    prune(keepDays);
    if (!with_.permission->granted()) {
        if (!std::exchange(askedPermission_, true))
            with_.permission->request();
        co_return CaptureOutcome{Kind::needsPermission, {}};
    }
    try {
        with_.folder.ensure();
    } catch (const std::exception& error) {
        logLine(std::string("no screenshot: ") + error.what());
        co_return CaptureOutcome{Kind::failed, {}};
    }
    const auto id = ShotID::make(with_.now());
    auto argv = ScreenCaptureCommand::argv(target, with_.folder.file(id));
    auto ended = co_await attempt(with_.runner->run(std::move(argv)));
    co_return judge(id, target.isRegion(), ended ? *ended : -1);
}

CaptureOutcome ScreenContext::judge(const std::string& id, bool region, std::int32_t status) {
    const auto& folder = with_.folder;
    const auto written = folder.written(id);
    // Whoever leaves a drag with Escape has not failed.
    if (!written)
        return {region || status == 0 ? Kind::cancelled : Kind::failed, {}};
    const auto size = written->size;
    if (!size || *size < minBytes || *size > maxBytes || !folder.isPNG(id)) {
        folder.remove(id);
        return {Kind::failed, {}};
    }
    folder.setPrivate(id);
    return CaptureOutcome::captured({id, folder.file(id), *size});
}

int ScreenContext::prune(int days) {
    return with_.folder.prune(with_.now() - seconds(days * day));
}

void ScreenContext::discard(const CapturedShot& shot) {
    with_.folder.discard(shot);
}

} // namespace kelvadrome
