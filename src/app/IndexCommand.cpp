#include "app/IndexCommand.h"

#include "app/ApiHandlers.h"
#include "app/ByteCount.h"
#include "app/DaemonClient.h"
#include "app/DaemonEndpoint.h"

namespace vosklin {

namespace {

std::string plural(std::int64_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

IndexCommand::IndexCommand(AppContext& context, std::ostream& out, std::ostream& err)
    : context_(context), out_(out), err_(err) {}

int IndexCommand::run(Action action, bool json) {
    const nlohmann::json request = {
        {"action", action == Action::status ? "status" : action == Action::clear ? "clear" : "now"}};
    nlohmann::json answer;
    if (auto daemon = DaemonEndpoint::find(context_.fileSystem(), context_.locator().containerRoot()))
        answer = DaemonClient(*daemon).call("index", request, 24 * 3600);
    else
        answer = ApiHandlers(context_, nullptr).call("index", request);
    const bool disabled = context_.settings().flag("vosklin.contentSearchDisabled").value_or(false);
    answer["contentSearchDisabled"] = disabled;
    if (json) {
        out_ << answer.dump(2) << "\n";
        return 0;
    }
    if (action == Action::clear) out_ << "Cleared the search index: every version's text will be read again.\n";
    int status = 0;
    if (answer.contains("run")) {
        const auto& run = answer["run"];
        out_ << "Read " << plural(run["versions"].get<std::int64_t>(), "version", "versions") << ": "
             << run["indexed"].get<std::int64_t>() << " with text, " << run["withoutText"].get<std::int64_t>()
             << " without, " << run["failed"].get<std::int64_t>() << " could not be read.\n";
        if (!run["finished"].get<bool>()) {
            const std::string end = run["end"].get<std::string>();
            err_ << "vosklin: indexing stopped early: " << end
                 << (disabled ? " (turn it on with 'vosklin settings vosklin.contentSearchDisabled false')" : "")
                 << "\n";
            status = 1;
        }
    }
    out_ << "Indexed: " << plural(answer["indexed"].get<std::int64_t>(), "text", "texts") << " ("
         << formatByteCount(answer["textBytes"].get<std::int64_t>()) << ")\n"
         << "Without text: " << answer["withoutText"].get<std::int64_t>() << "\n"
         << "Could not be read: " << answer["failed"].get<std::int64_t>() << "\n"
         << "Waiting to be read: " << answer["pending"].get<std::int64_t>() << "\n";
    if (disabled) out_ << "Content search is turned off (vosklin.contentSearchDisabled): nothing new is read.\n";
    return status;
}

}  // namespace vosklin
