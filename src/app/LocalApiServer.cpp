#include "app/LocalApiServer.h"

#include <httplib.h>

#include <stdexcept>

namespace vosklin {
namespace {

void reply(httplib::Response& response, int status, const nlohmann::json& body) {
    response.status = status;
    response.set_content(body.dump(2) + "\n", "application/json");
}

}  // namespace

LocalApiServer::LocalApiServer(ApiHandlers& handlers, std::string token)
    : handlers_(handlers), token_(std::move(token)), server_(std::make_unique<httplib::Server>()) {}

LocalApiServer::~LocalApiServer() { stop(); }

int LocalApiServer::start() {
    server_->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        const std::string host = request.get_header_value("Host");
        const std::string port = std::to_string(port_);
        if (host != "127.0.0.1:" + port && host != "localhost:" + port) {
            reply(response, 403, {{"error", "This API answers only requests addressed to 127.0.0.1:" + port}});
            return httplib::Server::HandlerResponse::Handled;
        }
        if (request.get_header_value("Authorization") != "Bearer " + token_) {
            reply(response, 401, {{"error", "Missing or wrong API token"}});
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    server_->Post(R"(/v1/([a-z]+))", [this](const httplib::Request& request, httplib::Response& response) {
        nlohmann::json body = nlohmann::json::object();
        if (!request.body.empty()) {
            body = nlohmann::json::parse(request.body, nullptr, false);
            if (body.is_discarded()) return reply(response, 400, {{"error", "The request body is not JSON"}});
        }
        try {
            reply(response, 200, handlers_.call(request.matches[1], body));
        } catch (const ApiError& error) {
            reply(response, error.status(), {{"error", error.what()}});
        } catch (const std::exception& error) {
            reply(response, 500, {{"error", error.what()}});
        }
    });
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("The local API could not bind a port on 127.0.0.1");
    // Bound already: connections wait in the backlog until the loop picks them up.
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    return port_;
}

void LocalApiServer::stop() {
    if (server_) server_->stop();
    if (thread_.joinable()) thread_.join();
}

}  // namespace vosklin
