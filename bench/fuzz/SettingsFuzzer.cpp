// settings.json, which the user edits by hand. Settings reads its file on every
// use, so the bytes go into a real file that the real class reads; every key it
// holds, and every key the program asks for, is read as each type. Reading never
// throws: a value of the wrong type reads as absent.
// libFuzzer dictionary: json.dict
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <set>

#include "FuzzSupport.h"
#include "platform/AtomicFile.h"
#include "platform/PosixFileSystem.h"
#include "platform/Settings.h"

namespace {

class SilentLogger final : public vosklin::Logger {
public:
    void log(vosklin::LogLevel, const std::string&) override {}
};

// settings.json in a fresh directory, removed when the run ends.
struct ScratchSettings {
    std::string directory, path;
    ScratchSettings() {
        char name[] = "/tmp/vosklin-settings-fuzz-XXXXXX";
        if (!::mkdtemp(name)) vosklin::fuzz::fail("cannot make a temporary directory");
        directory = name;
        path = directory + "/settings.json";
    }
    ~ScratchSettings() {
        ::unlink(path.c_str());
        ::rmdir(directory.c_str());
    }
};

const std::string& settingsPath() {
    static const ScratchSettings scratch;
    return scratch.path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vosklin;
    PosixFileSystem fileSystem;
    SilentLogger logger;
    const auto text = fuzz::bytes(data, size);
    fuzz::returnsOrThrows<fuzz::NothingExpected>(
        [&] { writeFileAtomically(fileSystem, settingsPath(), text, 0600, Durability::deferred); });

    std::set<std::string> keys = {"vosklin.mergeWindowSeconds", "vosklin.packageExtensions", "vosklin.excludePatterns"};
    auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_object())
        for (const auto& item : json.items()) keys.insert(item.key());
    Settings settings(settingsPath(), fileSystem, logger);
    for (const auto& key : keys) {
        fuzz::returnsOrThrows<fuzz::NothingExpected>([&] {
            settings.number(key);
            settings.flag(key);
            settings.strings(key);
        });
    }
    return 0;
}
