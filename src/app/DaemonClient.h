#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "app/DaemonEndpoint.h"

namespace vosklin {

// Sends a request to the running daemon's local API. Throws ApiError with the
// daemon's status and message when it refuses, std::runtime_error when it
// cannot be reached.
class DaemonClient {
public:
    explicit DaemonClient(DaemonEndpoint endpoint) : endpoint_(std::move(endpoint)) {}

    nlohmann::json call(const std::string& name, const nlohmann::json& request, double timeoutSeconds = 3600);
    const DaemonEndpoint& endpoint() const { return endpoint_; }

private:
    DaemonEndpoint endpoint_;
};

}  // namespace vosklin
