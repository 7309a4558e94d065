#pragma once

#include "KelvadromeKit/capture/ScreenCapture.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Descriptor.h"

#include <exception>
#include <optional>
#include <string>

namespace kelvadrome {

/// The place of the screenshots is taken by a link, or by something that is no folder.
class ScreenContextError : public std::exception {
public:
    const char* what() const noexcept override { return "the screenshots' place is no folder of ours"; }
};

/// The folder of screenshots in a data home. What deletes or reads goes through the opened folder, so that a
/// path that was swapped for a link in between leads nowhere else. Blocks, for a moment.
struct ShotFolder {
    std::string home;

    std::string path() const;
    std::string file(const std::string& id) const;

    /// Makes the folder, for its owner alone. Throws ScreenContextError, or std::system_error when it can't
    /// be made or its mode not be set.
    void ensure() const;
    /// Removes the shots of before `cutoff`, to whole seconds; gives how many. No other file is touched.
    int prune(WallTime cutoff) const;
    /// Removes one shot of this folder; anything else is left alone in silence.
    void discard(const CapturedShot& shot) const;

    /// The size of the regular file that the tool has written; absent when there is no such file.
    struct Written {
        std::optional<std::int64_t> size; // absent for what is no regular file of ours
    };
    std::optional<Written> written(const std::string& id) const;
    /// Whether the file begins as a PNG does and can be read.
    bool isPNG(const std::string& id) const;
    /// For its owner alone; a failure is ignored.
    void setPrivate(const std::string& id) const;
    /// Removes what the tool has written, whatever it is.
    void remove(const std::string& id) const;

    bool operator==(const ShotFolder&) const = default;

private:
    Descriptor open() const;
};

} // namespace kelvadrome
