#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Logger.h"

namespace vosklin::test {

// Keeps every message so tests can check what was logged.
class RecordingLogger final : public Logger {
public:
    void log(LogLevel, const std::string& message) override {
        std::lock_guard guard(lock_);
        messages_.push_back(message);
    }
    std::vector<std::string> messages() const {
        std::lock_guard guard(lock_);
        return messages_;
    }
    bool contains(const std::string& message) const {
        std::lock_guard guard(lock_);
        return std::find(messages_.begin(), messages_.end(), message) != messages_.end();
    }

private:
    mutable std::mutex lock_;
    std::vector<std::string> messages_;
};

}  // namespace vosklin::test
