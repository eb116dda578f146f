#include "support/KillSoak.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

#include "platform/PosixFileSystem.h"
#include "store/PayloadDigest.h"
#include "support/CommandRunner.h"
#include "support/DaemonProcess.h"
#include "support/StoreAudit.h"
#include "support/TempDirectory.h"

namespace vosklin::test {
namespace {

namespace fs = std::filesystem;

std::string fileName(int index, const KillSoak::Options& options) {
    return index < options.largeFiles ? "large-" + std::to_string(index) + ".bin"
                                      : "doc-" + std::to_string(index) + ".txt";
}

// Contents unique to this save: a header naming it, then filler.
std::string contentsFor(std::mt19937& random, int index, std::int64_t save, const KillSoak::Options& options) {
    const std::size_t size = index < options.largeFiles ? 1'000'000 + random() % 2'000'000 : 100 + random() % 20'000;
    std::string text = "save " + std::to_string(save) + " of file " + std::to_string(index) + "\n";
    text.reserve(size);
    const char filler = char('a' + random() % 26);
    while (text.size() < size) text += filler;
    return text;
}

bool writeWhole(const std::string& path, const std::string& contents, int flags) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | flags, 0644);
    if (fd < 0) return false;
    std::size_t done = 0;
    while (done < contents.size()) {
        ssize_t n = ::write(fd, contents.data() + done, contents.size() - done);
        if (n <= 0) break;
        done += std::size_t(n);
    }
    ::close(fd);
    return done == contents.size();
}

// The writer's loop, in its own process: saves until `stopFile` exists, then
// leaves the number of saves in `countFile`. Never returns.
[[noreturn]] void writeUntilStopped(const std::string& root, const std::string& stopFile,
                                    const std::string& countFile, const KillSoak::Options& options) {
    std::mt19937 random(options.seed * 7919 + 1);
    std::int64_t saves = 0;
    while (::access(stopFile.c_str(), F_OK) != 0) {
        const int index = int(random() % unsigned(options.files));
        const std::string path = root + "/" + fileName(index, options);
        const std::string contents = contentsFor(random, index, saves, options);
        switch (random() % 3) {
            case 0:  // in place, as most editors and cp do
                writeWhole(path, contents, O_TRUNC);
                break;
            case 1:  // a temporary renamed over the original
                if (writeWhole(path + ".tmp", contents, O_TRUNC | O_EXCL))
                    ::rename((path + ".tmp").c_str(), path.c_str());
                break;
            default:  // unlinked, then created anew
                ::unlink(path.c_str());
                writeWhole(path, contents, O_EXCL);
                break;
        }
        ++saves;
        // A storm, not a fork bomb: leave the daemon a core to record with.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    writeWhole(countFile, std::to_string(saves), O_TRUNC);
    ::_exit(0);
}

}  // namespace

KillSoak::Figures KillSoak::run(const Options& options) {
    Figures figures;
    TempDirectory home, watched, control;
    const std::string root = fs::canonical(watched.path()).string();
    writeFile(home / "settings.json", R"({"vosklin.mergeWindowSeconds": 0.2})");
    std::mt19937 random(options.seed);
    for (int i = 0; i < options.files; ++i)
        writeFile(root + "/" + fileName(i, options), contentsFor(random, i, -1, options));

    const std::string stopFile = control / "stop", countFile = control / "saves";
    pid_t writer = ::fork();
    if (writer < 0) {
        figures.problems.push_back("fork failed");
        return figures;
    }
    if (writer == 0) writeUntilStopped(root, stopFile, countFile, options);

    std::uniform_real_distribution<double> life(0, options.longestLife);
    for (int kill = 0; kill < options.kills; ++kill) {
        DaemonProcess daemon(home.path(), {root});
        if (auto started = daemon.start(60); !started) {
            figures.problems.push_back("start " + std::to_string(kill + 1) + ": " + started.message());
            break;
        }
        if (kill > 0) ++figures.killsSurvived;  // it came up again after the previous kill
        std::this_thread::sleep_for(std::chrono::duration<double>(life(random)));
        ::kill(daemon.pid(), SIGKILL);
        daemon.waitForExit(30);
    }

    writeFile(stopFile, "");
    int status = 0;
    while (::waitpid(writer, &status, 0) < 0 && errno == EINTR) {
    }
    try {
        figures.saves = std::stoll(readFile(countFile));
    } catch (const std::exception&) {
        figures.problems.push_back("the writer did not finish");
    }

    // The last start: it catches up on what the kills missed, then settles.
    {
        DaemonProcess daemon(home.path(), {root});
        if (auto started = daemon.start(60); !started) {
            figures.problems.push_back("the last start: " + std::string(started.message()));
            return figures;
        }
        if (options.kills > 0) ++figures.killsSurvived;
        auto settled = runInHome(home.path(), {"settle", "--timeout", "120"});
        if (settled.exitStatus != 0) figures.problems.push_back("settle: " + settled.err);
        if (daemon.stop() != 0)
            figures.problems.push_back("the daemon did not stop cleanly: " + daemon.standardError());
    }

    auto audit = StoreAudit::of(home / "store");
    figures.problems.insert(figures.problems.end(), audit.problems.begin(), audit.problems.end());
    figures.emptyStoreDirectories = audit.emptyDirectories;
    figures.orphanSlots = std::int64_t(audit.orphanSlots.size());
    figures.bytesLost += audit.damagedBytes;
    figures.versions = audit.versions;
    PosixFileSystem fileSystem;
    PayloadDigest digest(fileSystem);
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string relative = fs::relative(entry.path(), root).string();
        if (entry.path().filename().string().starts_with(".vosklin-restore-"))
            figures.problems.push_back("scratch item left: " + relative);
        if (!entry.is_regular_file()) continue;
        ++figures.filesChecked;
        const std::string live = digest.fileDigest(entry.path());
        auto newest = audit.newestByPath.find(relative);
        if (newest == audit.newestByPath.end() || newest->second.digest != live) {
            figures.bytesLost += std::int64_t(entry.file_size());
            figures.problems.push_back(relative + ": its content is not its newest version (" +
                                       (newest == audit.newestByPath.end() ? "no version" : newest->second.digest) +
                                       " vs " + live + ")");
        }
    }
    return figures;
}

std::string KillSoak::Figures::summary(const Options& options) const {
    return "kill-soak: " + std::to_string(killsSurvived) + " kills survived, " + std::to_string(filesChecked) +
           " files checked, " + std::to_string(bytesLost) + " bytes lost (" + std::to_string(options.kills) +
           " kills, seed " + std::to_string(options.seed) + ", " + std::to_string(saves) + " saves, " +
           std::to_string(versions) + " versions, " + std::to_string(orphanSlots) + " orphan slots, " +
           std::to_string(emptyStoreDirectories.size()) + " empty store directories, " +
           std::to_string(problems.size()) + " problems)";
}

}  // namespace vosklin::test
