#include "app/DaemonClient.h"

#include <httplib.h>

#include "app/ApiHandlers.h"

namespace vosklin {

nlohmann::json DaemonClient::call(const std::string& name, const nlohmann::json& request, double timeoutSeconds) {
    httplib::Client client("127.0.0.1", endpoint_.port);
    const auto seconds = time_t(timeoutSeconds);
    client.set_read_timeout(seconds, 0);
    client.set_write_timeout(10, 0);
    httplib::Headers headers = {{"Authorization", "Bearer " + endpoint_.token}};
    auto response = client.Post(("/v1/" + name).c_str(), headers, request.dump(), "application/json");
    if (!response)
        throw std::runtime_error("The Vosklin daemon (pid " + std::to_string(endpoint_.pid) +
                                 ") did not answer: " + httplib::to_string(response.error()));
    auto body = nlohmann::json::parse(response->body, nullptr, false);
    if (response->status != 200) {
        std::string message = body.is_object() && body.contains("error") ? body["error"].get<std::string>()
                                                                         : "HTTP " + std::to_string(response->status);
        throw ApiError(response->status, message);
    }
    if (body.is_discarded()) throw std::runtime_error("The Vosklin daemon sent an answer that is not JSON");
    return body;
}

}  // namespace vosklin
