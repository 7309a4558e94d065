#pragma once

#include <gio/gio.h>

#include <memory>

namespace kelvadrome {

template <auto release>
struct GLibRelease {
    void operator()(auto* pointer) const { release(pointer); }
};

/// What GLib hands out, released once by its owner.
template <class T>
using OwnedObject = std::unique_ptr<T, GLibRelease<g_object_unref>>;
using OwnedVariant = std::unique_ptr<GVariant, GLibRelease<g_variant_unref>>;
using OwnedText = std::unique_ptr<char, GLibRelease<g_free>>;
using OwnedError = std::unique_ptr<GError, GLibRelease<g_error_free>>;

} // namespace kelvadrome
