// The daemon's request bodies, as any program on the socket or a web page could send
// them, through every route into a real home with a watched folder and history.
// The first byte picks the route; the rest is the body. A body may be refused with a
// 4xx, never answered with a 5xx: that would mean something escaped the field checks.
// libFuzzer dictionary: api.dict
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "FuzzSupport.h"
#include "app/ApiHandlers.h"
#include "app/AppContext.h"
#include "bridge/FolderAdmission.h"

namespace {

using namespace vosklin;

class QuietLogger final : public Logger {
public:
    void log(LogLevel, const std::string&) override {}
};

struct Home {
    Home() {
        char pattern[] = "/tmp/vosklin-api-fuzz-XXXXXX";
        root = ::mkdtemp(pattern);
        folder = root + "/folder";
        ::mkdir(folder.c_str(), 0755);
        ::mkdir((folder + "/sub").c_str(), 0755);
        std::ofstream(folder + "/a.txt") << "alpha";
        std::ofstream(folder + "/sub/b.txt") << "beta";
        context = std::make_unique<AppContext>(root + "/home", logger);
        FolderAdmission admission(context->fileSystem(), context->locator(), context->homeDirectory());
        context->folders().append(admission.admit(folder, CaptureMode::automatic, context->folders().folders()));
        handlers = std::make_unique<ApiHandlers>(*context, nullptr);
        const auto scanned = handlers->answer("scan", nlohmann::json{{"folder", folder}}.dump());
        fuzz::require(scanned.status == 200, "the fuzzing home could not be scanned: " + scanned.body.dump());
    }

    QuietLogger logger;
    std::string root, folder;
    std::unique_ptr<AppContext> context;
    std::unique_ptr<ApiHandlers> handlers;
};

// Not "export": it creates folders wherever a body names one, which a fuzzer running as root must not do.
const char* const routes[] = {"status", "snapshot", "scan",    "settle", "name",  "unname",
                              "star",   "unstar",   "restore", "rewind", "prune", "delete", "index", "search",
                              "pdfinfo"};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Home home;
    if (size == 0) return 0;
    const std::string route = routes[data[0] % (sizeof routes / sizeof routes[0])];
    std::string body(fuzz::bytes(data + 1, size - 1));
    // Most interesting bodies name the watched folder; let short inputs reach it.
    const std::string marker = "@F";
    for (auto at = body.find(marker); at != std::string::npos; at = body.find(marker, at + home.folder.size()))
        body.replace(at, marker.size(), home.folder);
    ApiResponse answer;
    fuzz::returnsOrThrows<fuzz::NothingExpected>([&] { answer = home.handlers->answer(route, body); });
    fuzz::require(answer.status == 200 || (answer.status >= 400 && answer.status < 500),
                  route + " answered " + std::to_string(answer.status) + ": " + answer.body.dump());
    fuzz::require(answer.body.is_object(), route + " answered something other than an object");
    return 0;
}
