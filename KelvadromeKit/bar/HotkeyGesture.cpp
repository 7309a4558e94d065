#include "KelvadromeKit/bar/HotkeyGesture.h"

namespace kelvadrome {

HotkeyGesture::Effects HotkeyGesture::keyDown(double at, bool barOpen, bool capable) {
    if (downAt)
        return {};
    downAt = at;
    barWasOpen = barOpen;
    holdCapable = capable;
    return barOpen ? Effects{} : Effects{Effect::openBar};
}

HotkeyGesture::Effects HotkeyGesture::tick(double at) {
    if (!downAt || !holdCapable || talking || at - *downAt < holdThreshold)
        return {};
    talking = true;
    return {Effect::startTalk};
}

HotkeyGesture::Effects HotkeyGesture::keyUp(double) {
    if (!downAt)
        return {};
    Effects effects;
    if (talking) {
        effects = {Effect::stopTalk};
    } else if (barWasOpen) {
        effects = {Effect::closeBar};
    }
    downAt.reset();
    talking = false;
    return effects;
}

} // namespace kelvadrome
