#pragma once

#include <glib-object.h>

#include <memory>

namespace kelvadrome {

/// Takes over the caller's reference to an object of a C library.
template <class T>
std::shared_ptr<T> adopt(T* object) {
    return std::shared_ptr<T>(object, [](T* gone) { g_object_unref(gone); });
}

/// Holds one more reference.
template <class T>
std::shared_ptr<T> share(T* object) {
    g_object_ref(object);
    return adopt(object);
}

struct GFree {
    void operator()(void* memory) const { g_free(memory); }
};
using GText = std::unique_ptr<char, GFree>;

} // namespace kelvadrome
