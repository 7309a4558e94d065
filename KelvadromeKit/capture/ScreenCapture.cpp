#include "KelvadromeKit/capture/ScreenCapture.h"

namespace kelvadrome {

std::vector<std::string> ScreenCaptureCommand::argv(const CaptureTarget& target, const std::string& path) {
    if (const auto* const id = std::get_if<std::uint32_t>(&target.what))
        return {program, "-x", "-o", "-l" + std::to_string(*id), path};
    return {program, "-i", "-x", path};
}

} // namespace kelvadrome
