#include "app/RunCommand.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>

#include "app/ApiHandlers.h"
#include "app/BackgroundWork.h"
#include "app/ChangeFeed.h"
#include "app/CommandError.h"
#include "app/DaemonEndpoint.h"
#include "app/FolderRequests.h"
#include "app/LocalApiServer.h"
#include "app/LocalSocketServer.h"
#include "bridge/FolderAdmission.h"
#include "bridge/FolderListError.h"
#include "capture/CaptureEngine.h"
#include "platform/AtomicFile.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"
#include "platform/PosixFileSystem.h"
#include "search/ContentIndexSchedule.h"

namespace vosklin {

namespace {

// The daemon's periodic upkeep, one step after another; a step checks `stop` before it
// begins, so stopping the daemon waits for one step at most. The retention pass goes
// through the handlers, so it never overlaps a rewind, restore or deletion the user asked for.
void maintain(ApiHandlers& handlers, ContentIndexSchedule& indexing, Logger& logger, std::stop_token stop) {
    if (stop.stop_requested()) return;
    const auto answer = handlers.answer("prune", "{}");
    if (answer.status != 200) logger.error("The retention pass failed: " + answer.body.value("error", std::string()));
    if (stop.stop_requested()) return;
    indexing.catchUp(stop);
}

}  // namespace

RunCommand::RunCommand(AppContext& context, std::ostream& out, std::ostream& err)
    : context_(context), out_(out), err_(err) {}

int RunCommand::run(const std::vector<std::string>& folders, bool background) {
    const std::string container = context_.locator().containerRoot();
    auto lock = DaemonEndpoint::lock(context_.fileSystem(), container);
    if (!lock) {
        auto running = DaemonEndpoint::find(context_.fileSystem(), container);
        throw CommandError("Vosklin is already running for " + DisplayName::of(container) +
                           (running ? " (pid " + std::to_string(running->pid) + ")" : std::string()) +
                           "; stop it first, or use another --home");
    }
    if (background) context_.logger().info("Login launch: recording without a window");

    for (const auto& path : folders) {
        FolderAdmission admission(context_.fileSystem(), context_.locator(), context_.homeDirectory());
        try {
            auto folder = context_.folders().append(
                admission.admit(path, CaptureMode::automatic, context_.folders().folders()));
            out_ << "Watching " << DisplayName::of(folder.path) << "\n";
        } catch (const FolderListError& error) {
            if (error.kind() != FolderListError::Kind::overlapsWatched) throw;
            // Already watched (or inside a watched folder): recording it is what was asked.
            if (!context_.folders().folderContaining(path)) throw;
        }
    }

    // Signals are taken by this thread alone; every thread started from here inherits the mask.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    // What windows hear of: captures from the engine, the rest from the handlers.
    ChangeFeed feed;
    std::unique_ptr<CaptureEngine> engine;
    std::unique_ptr<ContentIndexSchedule> indexing;
    try {
        // Before anything records: an interrupted restore's leftovers are not the user's changes.
        context_.restoreService().recoverInterrupted();
        for (const auto& interrupted : context_.rewindService().recoverInterrupted())
            context_.logger().info(
                "A rewind from a previous run did not finish: " + std::to_string(interrupted.completedEntries) +
                " of " + std::to_string(interrupted.journal.entries.size()) + " writes were found in place" +
                (interrupted.uncheckedEntries
                     ? " (" + std::to_string(interrupted.uncheckedEntries) + " could not be checked)"
                     : std::string()) +
                ". The folder as it was before it started is on the timeline.");
        engine = std::make_unique<CaptureEngine>(
            CaptureEngine::Collaborators{context_.folders(), context_.catalog(), context_.captureService(),
                                         context_.layout(), context_.fileSystem(), context_.clock(),
                                         context_.logger(), context_.settings()},
            CaptureEngine::TimerPolicy::runLoop, context_.homeDirectory());
        // New text becomes searchable soon after it is kept, not only at the next maintenance.
        indexing = std::make_unique<ContentIndexSchedule>(context_.contentIndexer());
        engine->whenStored([schedule = indexing.get()](const std::string&) { schedule->capturesStored(); });
        engine->whenStored([&feed](const std::string& folderID) { feed.publish("captured", folderID); });
        context_.contentIndexer().start();
        engine->start();
    } catch (const std::exception& error) {
        context_.logger().error(std::string("Capture engine unavailable: ") + error.what());
        throw CommandError(std::string("Capture engine unavailable: ") + error.what());
    }

    ApiHandlers handlers(context_, engine.get());
    DaemonEndpoint endpoint;
    endpoint.pid = ::getpid();
    endpoint.token = DaemonEndpoint::makeToken();
    LocalApiServer server(handlers, endpoint.token);
    handlers.setChangeFeed(&feed);
    handlers.setLoginCodes([&server] { return server.issueLoginCode(); });
    LocalSocketServer socketServer(handlers, context_.locator().daemonSocketPath());
    try {
        endpoint.port = server.start();
        socketServer.start();
        endpoint.socketPath = socketServer.path();
    } catch (const std::exception& error) {
        server.stop();
        engine->stop();
        throw CommandError(std::string("The daemon's API could not start: ") + error.what());
    }
    endpoint.publish(context_.fileSystem(), container);
    BackgroundWork maintenance(
        context_.machine(), context_.logger(),
        [&](std::stop_token stop) { maintain(handlers, *indexing, context_.logger(), stop); }, {},
        // Not before the start-up crawl has caught up: until then the catalog does not know today's files.
        [&] { return engine->barrier(1); });
    maintenance.start();

    std::size_t recording = 0;
    for (const auto& folder : context_.folders().folders())
        if (folder.isRecording()) ++recording;
    if (!background) {
        out_ << "Recording " << recording << (recording == 1 ? " folder" : " folders")
             << " (commands on " << DisplayName::of(endpoint.socketPath) << ", browser on 127.0.0.1:" << endpoint.port
             << "). Press Ctrl-C to stop.\n"
             << std::flush;
    }

    int signal = 0;
    sigwait(&signals, &signal);
    context_.logger().info(std::string("Stopping on ") + (signal == SIGINT ? "SIGINT" : signal == SIGHUP ? "SIGHUP" : "SIGTERM"));
    DaemonEndpoint::withdraw(context_.fileSystem(), container);
    maintenance.stop();
    context_.contentIndexer().shutDown();
    socketServer.stop();
    server.stop();
    engine->stop();
    if (!background) out_ << "Stopped.\n";
    return 0;
}

AutostartCommand::AutostartCommand(const std::optional<std::string>& homeOption, std::ostream& out,
                                   std::ostream& err)
    : homeOption_(homeOption), out_(out), err_(err) {}

int AutostartCommand::run(const std::string& state) {
    if (state != "on" && state != "off") throw CommandError("'" + state + "' is neither on nor off");
    if (state == "off") {
        Autostart::disable();
        out_ << "Vosklin no longer starts at login.\n";
        return 0;
    }
    const bool enabled = Autostart::enable(homeOption_);
    out_ << "Installed " << Autostart::unitPath() << "\n";
    if (enabled) {
        out_ << "Vosklin will start at login. Start it now with: systemctl --user start vosklin\n";
    } else {
        err_ << "vosklin: the unit is installed, but 'systemctl --user enable vosklin' did not work here "
                "(no user session manager?); run it from your desktop session.\n";
    }
    return 0;
}

}  // namespace vosklin
