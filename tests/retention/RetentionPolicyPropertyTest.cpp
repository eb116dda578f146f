// Random histories against a second, deliberately plain reading of the
// thinning rules: both must keep and protect exactly the same versions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <random>
#include <set>
#include <sstream>

#include "retention/PinnedTimeZone.h"
#include "retention/RetentionPolicy.h"

namespace vosklin {
namespace {

using Kind = MomentMark::Kind;
constexpr double day = 86'400;

struct History {
    std::vector<StoredVersion> versions;
    std::vector<MomentMark> marks;
    bool deleted = false;
    RetentionHorizon horizon = RetentionHorizon::year;
    double now = 0;
};

struct Sets {
    std::set<std::int64_t> kept, guarded;
    bool operator==(const Sets&) const = default;
};

// The rules written out the long way: own windows, own sort, own calendar keys.
Sets plainReading(const History& h) {
    Sets sets;
    auto& [kept, guarded] = sets;
    double horizon = INFINITY;
    if (h.horizon == RetentionHorizon::month) horizon = 30 * day;
    if (h.horizon == RetentionHorizon::quarter) horizon = 91 * day;
    if (h.horizon == RetentionHorizon::halfYear) horizon = 182 * day;
    if (h.horizon == RetentionHorizon::year) horizon = 365 * day;
    const double daily = horizon < 30 * day ? horizon : 30 * day;

    std::vector<StoredVersion> order;  // newest first; insertion keeps equal instants in given order
    for (const StoredVersion& v : h.versions) {
        std::size_t at = order.size();
        while (at > 0 && order[at - 1].capturedAt < v.capturedAt) --at;
        order.insert(order.begin() + long(at), v);
    }
    for (std::size_t i = 0; i < order.size(); ++i) {
        const StoredVersion& v = order[i];
        const double age = h.now - v.capturedAt;
        if (i < 10 || age <= 3600 || v.isStarred || v.source == CaptureSource::manual) guarded.insert(v.id);
        if (v.source == CaptureSource::preRestore && age <= 30 * day) guarded.insert(v.id);
        if (h.deleted && i == 0) guarded.insert(v.id);
        if (i > 0 && order[i - 1].isReplacement && h.now - order[i - 1].capturedAt <= 30 * day)
            guarded.insert(v.id);
    }
    for (const MomentMark& m : h.marks) {
        bool counts = m.name.has_value() || m.kind == Kind::named;
        if (m.kind == Kind::beforeRewind && h.now - m.at <= 30 * day) counts = true;
        if (!counts) continue;
        for (const StoredVersion& v : order)
            if (v.capturedAt <= m.at) {
                guarded.insert(v.id);
                break;
            }
    }
    kept = guarded;
    std::set<std::string> used;
    for (const StoredVersion& v : order) {
        const double age = h.now - v.capturedAt;
        const char* format = nullptr;
        if (age <= day) {
            kept.insert(v.id);
            continue;
        }
        if (age <= 7 * day) format = "hour %Y-%m-%d %H";
        else if (age <= daily) format = "day %Y-%m-%d";
        else if (age <= horizon) format = "week %G-%V";
        else continue;
        const std::time_t seconds = std::time_t(std::floor(v.capturedAt));
        std::tm parts{};
        localtime_r(&seconds, &parts);
        char key[64];
        std::strftime(key, sizeof key, format, &parts);
        if (used.insert(key).second) kept.insert(v.id);
    }
    return sets;
}

// Ages spread from seconds to three years, some clustered into the same hour,
// day or week, some exactly on a window edge or a second past it.
History randomHistory(std::mt19937_64& random, double now) {
    auto chance = [&](double p) { return std::bernoulli_distribution(p)(random); };
    auto uniform = [&](double low, double high) { return std::uniform_real_distribution<double>(low, high)(random); };
    auto pick = [&](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); };
    const double edges[] = {3600, day, 7 * day, 30 * day, 91 * day, 182 * day, 365 * day};
    auto age = [&]() -> double {
        if (chance(0.1)) return edges[pick(7)] + (chance(0.5) ? 0 : chance(0.5) ? 1 : -1);
        return std::exp(uniform(0, std::log(3 * 365 * day)));
    };

    History h;
    h.now = now;
    h.deleted = chance(0.3);
    h.horizon = RetentionHorizons::all[pick(RetentionHorizons::all.size())];
    const double spread = chance(0.5) ? 0 : std::vector<double>{60, 3600, day, 7 * day}[pick(4)];
    const double centre = age();
    const std::size_t count = 1 + pick(30);
    for (std::size_t i = 0; i < count; ++i) {
        StoredVersion v;
        v.id = std::int64_t(i) * 7 + 3;
        if (i > 0 && chance(0.1)) v.capturedAt = h.versions[pick(i)].capturedAt;
        else v.capturedAt = now - (spread > 0 ? centre + uniform(0, spread) : age());
        v.isStarred = chance(0.08);
        if (chance(0.4)) v.source = CaptureSource(pick(7));
        v.isReplacement = chance(0.25);
        h.versions.push_back(v);
    }
    for (std::size_t n = pick(5); n > 0; --n) {
        MomentMark m;
        m.kind = Kind(pick(3));
        if (chance(0.3)) m.name = "mark";
        const double base = h.versions[pick(count)].capturedAt;
        switch (pick(4)) {
            case 0: m.at = base; break;
            case 1: m.at = base + uniform(-7200, 7200); break;
            case 2: m.at = now - (chance(0.3) ? 30 * day + (chance(0.5) ? 0 : 1) : age()); break;
            default: m.at = now + uniform(0, day); break;
        }
        h.marks.push_back(m);
    }
    std::shuffle(h.versions.begin(), h.versions.end(), random);
    return h;
}

std::string describe(const History& h, const Sets& library, const Sets& plain) {
    std::ostringstream out;
    for (const auto* ids : {&library.kept, &plain.kept, &library.guarded, &plain.guarded}) {
        out << (ids == &library.kept ? "kept:" : ids == &library.guarded ? "protected:" : "expected:");
        for (auto id : *ids) out << ' ' << id;
        out << '\n';
    }
    out.precision(17);
    out << "now " << h.now << ", horizon " << RetentionHorizons::toString(h.horizon) << (h.deleted ? ", deleted" : "")
        << "\nversions (id age starred source replacement):";
    for (const auto& v : h.versions)
        out << "\n  " << v.id << ' ' << h.now - v.capturedAt << ' ' << v.isStarred << ' ' << toString(v.source) << ' '
            << v.isReplacement;
    out << "\nmarks (age kind name):";
    for (const auto& m : h.marks)
        out << "\n  " << h.now - m.at << ' ' << toString(m.kind) << ' ' << m.name.value_or("-");
    return out.str();
}

TEST(RetentionPolicyPropertyTest, AgreesWithAPlainReadingOfTheRules) {
    const char* given = std::getenv("VOSKLIN_RETENTION_SEED");
    const std::uint64_t seed = given ? std::strtoull(given, nullptr, 10) : std::random_device()();
    std::mt19937_64 random(seed);
    // Zones with and without summer time, and one half an hour off the hour.
    const char* zones[] = {"UTC0", test::centralEurope, "NZST-12NZDT,M9.5.0,M4.1.0/3", "<+0530>-5:30"};
    test::PinnedTimeZone zone(zones[0]);
    constexpr int histories = 100'000;
    for (int n = 0; n < histories; ++n) {
        if (n % (histories / 4) == 0) zone.pin(zones[n / (histories / 4)]);
        // Quarter seconds, so that edges such as "exactly 30 days old" stay exact.
        const double now = std::floor(std::uniform_real_distribution<double>(0, 400 * day)(random) * 4) / 4;
        const History h = randomHistory(random, test::utc("2025-01-01 00:00") + now);
        const RetentionPolicy policy = RetentionPolicy::forHorizon(h.horizon);
        const auto kept = policy.versionsToKeep(h.versions, h.deleted, h.marks, h.now);
        const auto guarded = policy.protectedVersions(h.versions, h.deleted, h.marks, h.now);
        const Sets library{{kept.begin(), kept.end()}, {guarded.begin(), guarded.end()}}, plain = plainReading(h);
        const bool guardedKept = std::includes(library.kept.begin(), library.kept.end(), library.guarded.begin(),
                                               library.guarded.end());
        if (library != plain || !guardedKept)
            FAIL() << "history " << n << " of seed " << seed << " (rerun with VOSKLIN_RETENTION_SEED=" << seed
                   << ") in TZ " << std::getenv("TZ") << "\n" << describe(h, library, plain);
    }
}

}  // namespace
}  // namespace vosklin
