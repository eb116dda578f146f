#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vosklin::test {

// A real daemon under a save storm, SIGKILLed at random instants and
// restarted, then audited once it has settled.
//
// A writer process saves a few dozen files (some of a few MB) without pause,
// each save one of: rewrite in place, write "NAME.tmp" and rename it over
// NAME, unlink and create anew. Meanwhile `vosklin run` (merge window 0.2 s)
// is started, killed after a random delay, and started again, `kills` times.
// Then the writer stops, the daemon starts once more, `vosklin settle`
// returns, the daemon stops, and the store is audited: the catalog is sound,
// every payload matches its digest, every file in the folder has a newest
// version equal to its content, and no scratch item is left.
//
// Runs in the calling process (forks the writer, runs the built binary);
// leaves nothing running. Failures are reported in the figures, not thrown.
struct KillSoak {
    struct Options {
        int kills = 5;
        int files = 30;  // of which `largeFiles` are large
        int largeFiles = 4;
        unsigned seed = 1;
        double longestLife = 0.6;  // seconds a daemon may live before its kill
    };
    struct Figures {
        int killsSurvived = 0;  // kills after which the daemon came up again and recorded
        int filesChecked = 0;
        std::int64_t bytesLost = 0;  // of files whose content is in no newest version, or damaged payloads
        std::int64_t saves = 0;
        std::int64_t versions = 0;
        std::vector<std::string> problems;
        std::vector<std::string> emptyStoreDirectories;
        std::int64_t orphanSlots = 0;  // slots no row references: expected leftovers of a kill

        // "kill-soak: K kills survived, F files checked, B bytes lost (...)".
        std::string summary(const Options& options) const;
    };

    static Figures run(const Options& options);
};

}  // namespace vosklin::test
