#include "app/DaemonClient.h"

#include <cmath>
#include <cstring>

#include "app/ApiHandlers.h"
#include "platform/FileSystemError.h"
#include "platform/UnixSocket.h"

namespace vosklin {

nlohmann::json DaemonClient::call(const std::string& name, const nlohmann::json& request, double timeoutSeconds) {
    const std::string who = "The Vosklin daemon (pid " + std::to_string(endpoint_.pid) + ")";
    const auto now = std::chrono::steady_clock::now();
    const auto deadline = now + std::chrono::milliseconds(std::llround(std::min(timeoutSeconds, 1e9) * 1000));
    std::optional<UnixSocket> socket;
    try {
        socket = UnixSocket::connect(endpoint_.socketPath);
    } catch (const FileSystemError& error) {
        throw std::runtime_error(who + " cannot be reached at " + endpoint_.socketPath + ": " +
                                 std::strerror(error.errorNumber()));
    }
    const std::string line =
        name + " " + request.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    if (!socket->writeAll(line, now + std::chrono::seconds(10)))
        throw std::runtime_error(who + " did not take the request");
    std::string answerLine;
    switch (socket->readLine(answerLine, std::size_t(1) << 30, deadline)) {
        case UnixSocket::ReadResult::line:
            break;
        case UnixSocket::ReadResult::timedOut:
            throw std::runtime_error(who + " did not answer within " + std::to_string(std::llround(timeoutSeconds)) +
                                     " s");
        default:
            throw std::runtime_error(who + " closed the connection without answering");
    }
    auto answer = nlohmann::json::parse(answerLine, nullptr, false);
    if (answer.is_discarded() || !answer.is_object() || !answer.contains("status") ||
        !answer["status"].is_number_integer())
        throw std::runtime_error(who + " sent an answer that is not of its API");
    const int status = answer["status"].get<int>();
    if (status != 200) {
        const auto error = answer.find("error");
        throw ApiError(status, error != answer.end() && error->is_string() ? error->get<std::string>()
                                                                           : "status " + std::to_string(status));
    }
    return answer.value("body", nlohmann::json::object());
}

}  // namespace vosklin
