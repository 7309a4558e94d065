#pragma once

#include "KelvadromeKit/support/Defaults.h"

#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace kelvadrome {

/// Flags that are only ever set. Safe from any thread.
class FlagStore {
public:
    virtual ~FlagStore() = default;

    virtual bool isSet(const std::string& key) const = 0;
    virtual void set(const std::string& key) = 0;
};

/// Flags that last as long as the user's defaults.
class DefaultsFlags final : public FlagStore {
public:
    explicit DefaultsFlags(std::shared_ptr<Defaults> defaults);

    bool isSet(const std::string& key) const override;
    /// Written at once, so that it holds even if the process dies next.
    void set(const std::string& key) override;

private:
    std::shared_ptr<Defaults> defaults_;
};

/// Flags that last as long as the object.
class MemoryFlags final : public FlagStore {
public:
    bool isSet(const std::string& key) const override;
    void set(const std::string& key) override;

private:
    mutable std::mutex lock_;
    std::set<std::string> keys_;
};

} // namespace kelvadrome
