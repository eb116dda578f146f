// Content search on real SQLite files and a real store, printed as tables:
//   1. search latency over 100,000 indexed texts in one folder, for one-, two-
//      and three-word queries whose words are common, middling, rare or mixed,
//      next to the bare full-text match on the same database (the floor) and
//      equivalent statements that build snippets for the kept rows only (each
//      checked to return the search's rows exactly);
//   2. indexing throughput: ContentIndexer::runNow over N plain-text and N PDF
//      payloads, unpaced and with the default pacing.
//
// Flags: --texts=N (100000), --queries=N per cell (200), --cell-seconds=S (a
// cell stops early once its queries took this long, but not before
// --min-queries=N (10); 30), --search-queries=N caps the searches through
// ContentSearchModel per cell (0: only the statements), --index-texts=N per
// kind (2000), --paced-texts=N (300), --only=search|index. Scratch folders go
// under $VOSKLIN_BENCH_DIR, else /var/tmp. --write-texts=DIR only writes
// --texts generated documents into DIR and prints "COUNT BYTES".

#include <sys/resource.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <unordered_set>
#include <vector>

#include "BenchSupport.h"
#include "../tests/support/MinimalPdf.h"
#include "catalog/Database.h"
#include "catalog/VersionCatalog.h"
#include "platform/Clock.h"
#include "platform/Logger.h"
#include "platform/MachineConditions.h"
#include "platform/PosixFileSystem.h"
#include "platform/Settings.h"
#include "search/ContentIndexer.h"
#include "search/ContentSearchModel.h"
#include "search/TextExtractor.h"
#include "store/VersionStoreLayout.h"

namespace {

using namespace vosklin;
using bench::DeterministicBytes;
using bench::CountingLogger;
using bench::TempDir;
using bench::fileSystemName;
using bench::scratchBase;
using test::pdf;
using Steady = std::chrono::steady_clock;

const std::string folderID = "3B0E8C52-6D1F-4A7B-9C20-5E4F1A2B7D63";
constexpr double historyStart = 1'750'000'000.0;

struct Options {
    std::int64_t texts = 100'000;
    int queries = 200;
    int minimumQueries = 10;
    int searchQueries = 1'000'000;
    double cellSeconds = 30;
    std::int64_t indexTexts = 2'000;
    std::int64_t pacedTexts = 300;
    std::string only;
    std::string writeTexts;
};
Options options;

double seconds(Steady::duration elapsed) { return std::chrono::duration<double>(elapsed).count(); }

std::string loadAverage() {
    std::ifstream file("/proc/loadavg");
    std::string one, five, fifteen;
    file >> one >> five >> fifteen;
    return one + " " + five + " " + fifteen;
}

double processCpuSeconds() {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    auto toSeconds = [](const timeval& value) { return double(value.tv_sec) + double(value.tv_usec) / 1e6; };
    return toSeconds(usage.ru_utime) + toSeconds(usage.ru_stime);
}

// A mains-powered, cool machine: nothing holds the indexer back.
class SteadyMachine final : public MachineConditions {
public:
    bool isLowPower() override { return false; }
    ThermalState thermalState() override { return ThermalState::nominal; }
    std::optional<double> secondsSinceLastInput() override { return std::nullopt; }
};

double uniform(DeterministicBytes& bytes) { return double(bytes.next() >> 11) * 0x1.0p-53; }

// --- Generated language ---------------------------------------------------------

// A vocabulary of pseudo-words built from syllables, ranked by frequency:
// frequent words are short (a couple of letters), rare ones long; about one in
// twenty-five carries an accented letter. Word frequencies follow Zipf's law
// (s = 1), so rank 1 is about 9% of all words, as the commonest word of a
// European language is.
class Language {
public:
    static constexpr std::size_t vocabularySize = 50'000;

    Language() : bytes_(0x5EA2C4) {
        static const char* const onsets[] = {"b", "c", "d", "f", "g", "h", "j", "k", "l", "m", "n", "p", "r", "s",
                                             "t", "v", "w", "z", "br", "ch", "dr", "fl", "gr", "pl", "sh", "st",
                                             "th", "tr", "", "", ""};
        static const char* const vowels[] = {"a", "e", "i", "o", "u", "a", "e", "o", "ai", "ea", "ou", "y"};
        static const char* const accented[] = {"é", "è", "á", "ü", "ö", "å", "ñ", "ç", "í", "ø"};
        static const char* const codas[] = {"", "", "", "n", "r", "s", "t", "l", "m", "nd", "st", "ck"};
        auto pick = [&](const auto& table) { return table[bytes_.next() % std::size(table)]; };
        std::unordered_set<std::string> seen;
        while (words_.size() < vocabularySize) {
            const double rank = double(words_.size() + 1);
            const double mean = 2.3 + 0.5 * std::log(rank);
            // Box-Muller: a normal spread of about two letters around the mean.
            const double noise = std::sqrt(-2 * std::log(1 - uniform(bytes_))) * std::cos(2 * M_PI * uniform(bytes_));
            const auto target = std::size_t(std::clamp(std::lround(mean + 1.6 * noise), 2L, 16L));
            const bool accent = bytes_.next() % 25 == 0;
            std::string word;
            std::size_t letters = 0;
            while (letters < target) {
                std::string syllable = std::string(pick(onsets)) + pick(vowels) + pick(codas);
                word += syllable;
                letters += syllable.size();
            }
            if (accent) word.replace(bytes_.next() % word.size(), 1, pick(accented));
            if (seen.insert(word).second) words_.push_back(word);
        }
        double total = 0;
        for (std::size_t rank = 1; rank <= vocabularySize; ++rank) cumulative_.push_back(total += 1.0 / double(rank));
        for (auto& value : cumulative_) value /= total;
    }

    const std::string& word(std::size_t rank) const { return words_[rank - 1]; }

    std::size_t drawRank(DeterministicBytes& bytes) const {
        const double u = uniform(bytes);
        return std::size_t(std::lower_bound(cumulative_.begin(), cumulative_.end(), u) - cumulative_.begin()) + 1;
    }

    // A text of sentences (5 to 20 words, capitalised, full stops) in paragraphs;
    // its length in words is log-normal around 300 (sigma 0.7), 10 to 3,000.
    std::string text(std::uint64_t seed, bool asciiOnly = false) const {
        DeterministicBytes bytes(seed * 0x9E3779B97F4A7C15ull + 1);
        const double normal =
            std::sqrt(-2 * std::log(1 - uniform(bytes))) * std::cos(2 * M_PI * uniform(bytes));
        const auto count = std::int64_t(std::clamp(std::exp(std::log(300.0) + 0.7 * normal), 10.0, 3000.0));
        std::string text;
        std::int64_t sentenceLeft = 0, sentences = 0;
        for (std::int64_t i = 0; i < count; ++i) {
            std::string word = this->word(drawRank(bytes));
            if (asciiOnly) word = ascii(word);
            if (sentenceLeft == 0) {
                if (i) text += ++sentences % 5 == 0 ? ".\n\n" : ". ";
                sentenceLeft = 5 + std::int64_t(bytes.next() % 16);
                if (word[0] >= 'a' && word[0] <= 'z') word[0] = char(word[0] - 'a' + 'A');
            } else {
                text += ' ';
            }
            text += word;
            --sentenceLeft;
        }
        return text + ".\n";
    }

    // The word with each accented letter replaced by its base letter.
    static std::string ascii(const std::string& word) {
        static const std::pair<const char*, char> folds[] = {{"é", 'e'}, {"è", 'e'}, {"á", 'a'}, {"ü", 'u'},
                                                             {"ö", 'o'}, {"å", 'a'}, {"ñ", 'n'}, {"ç", 'c'},
                                                             {"í", 'i'}, {"ø", 'o'}};
        std::string out = word;
        for (const auto& [from, to] : folds)
            for (std::size_t at; (at = out.find(from)) != std::string::npos;) out.replace(at, 2, 1, to);
        return out;
    }

private:
    DeterministicBytes bytes_;
    std::vector<std::string> words_;
    std::vector<double> cumulative_;
};

std::string hexDigest(std::uint64_t seed) {
    DeterministicBytes bytes(seed + 1);
    char digest[65];
    std::snprintf(digest, sizeof digest, "%016" PRIx64 "%016" PRIx64 "%016" PRIx64 "%016" PRIx64, bytes.next(),
                  bytes.next(), bytes.next(), bytes.next());
    return digest;
}

// --- 1. Search latency ----------------------------------------------------------

// The search statement as the catalog runs it (for its query plan; the search
// itself is timed through ContentSearchModel) and two equivalent ones that build
// snippets for the kept rows only. All take (start marker, end marker,
// expression, folder, limit) and yield the catalog's eleven columns.
//
// The catalog's statement lets SQLite walk the folder's versions newest first
// (versions_by_folder_time gives the ORDER BY for free) and test the match once
// per version with the text's rowid fixed: every version of the folder costs a
// full-text lookup, however few texts match, and every matching row gets its
// snippet before the LIMIT keeps 300.
//
// "kept" is the first half of both proposals: the matching versions, newest
// first, at most `limit`, found from the full-text side (the match drives, then
// two primary-key/index lookups per matching row) and sorted without snippets.
const char* const currentSql =
    "SELECT f.id, f.folder_id, f.rel_path, f.inode, f.is_package, f.ext, f.last_digest, f.deleted_at, v.id, "
    "v.captured_at, snippet(content_fts, 0, ?, ?, '…', 12) FROM content_fts JOIN content_texts c ON c.id = "
    "content_fts.rowid JOIN versions v ON v.digest = c.digest JOIN files f ON f.id = v.file_id WHERE content_fts "
    "MATCH ? AND v.folder_id = ? ORDER BY v.captured_at DESC, v.id DESC LIMIT ?";
#define KEPT_SQL                                                                                                 \
    "SELECT c.id AS text_id, v.id AS version_id, v.captured_at AS captured_at, v.file_id AS file_id FROM "        \
    "content_fts JOIN content_texts c ON c.id = content_fts.rowid JOIN versions v ON v.digest = c.digest WHERE " \
    "content_fts MATCH ?3 AND v.folder_id = ?4 ORDER BY v.captured_at DESC, v.id DESC LIMIT ?5"
#define COLUMNS_SQL                                                                                            \
    "SELECT f.id, f.folder_id, f.rel_path, f.inode, f.is_package, f.ext, f.last_digest, f.deleted_at, "        \
    "kept.version_id, kept.captured_at, snippet(content_fts, 0, ?1, ?2, '…', 12) "
// Kept rows outside; for each, the match again with the rowid fixed, for its snippet.
const char* const seekSql = COLUMNS_SQL "FROM (" KEPT_SQL
                                        ") AS kept CROSS JOIN content_fts CROSS JOIN files f WHERE content_fts.rowid = "
                                        "kept.text_id AND content_fts MATCH ?3 AND f.id = kept.file_id ORDER BY "
                                        "kept.captured_at DESC, kept.version_id DESC";
// The match outside, walked once; kept rows looked up by text id inside.
const char* const scanSql = COLUMNS_SQL "FROM content_fts CROSS JOIN (" KEPT_SQL
                                        ") AS kept CROSS JOIN files f WHERE content_fts MATCH ?3 AND kept.text_id = "
                                        "content_fts.rowid AND f.id = kept.file_id ORDER BY kept.captured_at DESC, "
                                        "kept.version_id DESC";
// The other way round: the matching text ids once (the floor's work) into a
// temporary set, then the folder's versions newest first, each looked up in the
// set, until `limit` are kept. Cheap when many texts match (few versions are
// walked), dear when few do (every version of the folder is walked).
const char* const walkSql =
    "WITH matching(text_id) AS MATERIALIZED (SELECT rowid FROM content_fts WHERE content_fts MATCH ?3) " COLUMNS_SQL
    "FROM content_fts CROSS JOIN (SELECT c.id AS text_id, v.id AS version_id, v.captured_at AS captured_at, "
    "v.file_id AS file_id FROM versions v INDEXED BY versions_by_folder_time JOIN content_texts c ON c.digest = "
    "v.digest WHERE v.folder_id = ?4 AND +c.id IN matching ORDER BY v.captured_at DESC, v.id DESC LIMIT ?5) AS kept "
    "CROSS JOIN files f WHERE content_fts MATCH ?3 AND kept.text_id = content_fts.rowid AND f.id = kept.file_id "
    "ORDER BY kept.captured_at DESC, kept.version_id DESC";
// The kept rows alone, to show what the snippets cost on top.
const char* const keptSql = "SELECT text_id, version_id, captured_at, file_id, ?1, ?2 FROM (" KEPT_SQL ")";
const char* const floorSql = "SELECT rowid FROM content_fts WHERE content_fts MATCH ?";
const char* const countSql = "SELECT count(*) FROM content_fts WHERE content_fts MATCH ?";
// Where walking the folder's versions starts to beat letting the match drive:
// about 7 us per matching row against about 3 us per version walked, of which
// 300 x (folder versions / matches) are walked; equal near 4,000 of 100,000.
constexpr std::int64_t adaptiveThreshold = 4'000;

// Keeps the column reads of a timed statement from being optimised away.
std::size_t benchmarkSink = 0;

// What a row says, for comparing with the search's own rows: file id, version id, instant, snippet.
using RowKey = std::tuple<std::int64_t, std::int64_t, double, std::string>;

std::vector<RowKey> runStatement(Database& database, const char* sql, const std::string& expression) {
    std::vector<RowKey> rows;
    database.query(sql,
                   {std::string(ContentSearchModel::startMarker), std::string(ContentSearchModel::endMarker), expression,
                    folderID, std::int64_t(ContentSearchModel::hitLimit)},
                   [&](const DatabaseRow& row) {
                       if (sql == keptSql) {
                           rows.emplace_back(row.int64(3), row.int64(1), row.real(2), std::string());
                           return;
                       }
                       // Every column read, as the catalog reads them.
                       for (int column = 1; column < 8; ++column) benchmarkSink += row.text(column).size();
                       rows.emplace_back(row.int64(0), row.int64(8), row.real(9), row.text(10));
                   });
    return rows;
}

// The rows as the search hands them out: grouped by file in order of first appearance.
std::vector<RowKey> grouped(const std::vector<RowKey>& rows) {
    std::vector<ContentMatch> matches;
    for (const auto& [file, version, at, snippet] : rows) {
        ContentMatch match;
        match.file.id = file;
        match.hit = {version, at, snippet};
        matches.push_back(match);
    }
    std::vector<RowKey> out;
    for (const auto& group : ContentSearchModel::group(matches))
        for (const auto& hit : group.hits) out.emplace_back(group.file.id, hit.versionID, hit.capturedAt, hit.snippet);
    return out;
}

class SearchCorpus {
public:
    explicit SearchCorpus(const Language& language)
        : scratch_("vosklin-search-bench", scratchBase("/var/tmp")), catalog_(scratch_.file("index.sqlite")) {
        std::fprintf(stderr, "Catalog under %s (%s); %" PRId64 " texts...\n", scratch_.path().c_str(),
                     fileSystemName(scratch_.path()).c_str(), options.texts);
        auto started = Steady::now();
        std::vector<FileToTrack> files;
        for (std::int64_t i = 0; i < options.texts; ++i) {
            char path[64];
            std::snprintf(path, sizeof path, "notes/%03" PRId64 "/note%06" PRId64 ".txt", i % 500, i);
            files.push_back({folderID, path, std::uint64_t(1'000'000 + i), false, "txt", historyStart + double(i)});
        }
        const auto tracked = catalog_.trackFilesForCapture(files);
        std::vector<NewVersion> versions;
        for (std::int64_t i = 0; i < options.texts; ++i) {
            NewVersion version;
            version.fileID = tracked[std::size_t(i)].id;
            version.capturedAt = historyStart + double(i);
            version.digest = hexDigest(std::uint64_t(i));
            version.logicalBytes = 2'000;
            version.slot = "versions/00/" + std::to_string(version.fileID) + "/x";
            version.payloadName = "note.txt";
            version.method = CloneMethod::copied;
            versions.push_back(std::move(version));
        }
        catalog_.recordVersions(versions);
        versionsSeconds_ = seconds(Steady::now() - started);

        // Texts are stored in an order unrelated to capture order (the indexer
        // works newest first, and captures keep coming), by storeContentResult,
        // one transaction each, as the indexer stores them.
        started = Steady::now();
        std::vector<std::int64_t> order(std::size_t(options.texts));
        for (std::size_t i = 0; i < order.size(); ++i) order[i] = std::int64_t(i);
        DeterministicBytes shuffle(77);
        for (std::size_t i = order.size(); i > 1; --i) std::swap(order[i - 1], order[shuffle.next() % i]);
        std::int64_t done = 0;
        for (std::int64_t i : order) {
            const std::string text = language.text(std::uint64_t(i));
            textBytes_ += std::int64_t(text.size());
            if (!catalog_.storeContentResult(hexDigest(std::uint64_t(i)), ContentState::indexed,
                                             historyStart + double(options.texts), std::int64_t(text.size()), text))
                throw std::runtime_error("storeContentResult stored nothing");
            if (++done % 20'000 == 0)
                std::fprintf(stderr, "  %" PRId64 " texts stored, %.0f s\n", done, seconds(Steady::now() - started));
        }
        textsSeconds_ = seconds(Steady::now() - started);
        std::fprintf(stderr, "  versions %.1f s; texts %.1f s (%.1f MB of text)\n", versionsSeconds_, textsSeconds_,
                     double(textBytes_) / 1e6);
    }

    VersionCatalog& catalog() { return catalog_; }
    std::string databasePath() const { return scratch_.file("index.sqlite"); }
    double textsSeconds() const { return textsSeconds_; }
    std::int64_t textBytes() const { return textBytes_; }

private:
    TempDir scratch_;
    VersionCatalog catalog_;
    double versionsSeconds_ = 0;
    double textsSeconds_ = 0;
    std::int64_t textBytes_ = 0;
};

struct Percentiles {
    double p50 = 0, p95 = 0;
};

Percentiles percentiles(std::vector<double> values) {
    if (values.empty()) return {};
    std::sort(values.begin(), values.end());
    auto at = [&](double q) { return values[std::min(values.size() - 1, std::size_t(std::ceil(q * double(values.size())) - 1))]; };
    return {at(0.50), at(0.95)};
}

enum class WordClass { common, middling, rare, mixed };
const char* className(WordClass kind) {
    switch (kind) {
        case WordClass::common: return "common";
        case WordClass::middling: return "middling";
        case WordClass::rare: return "rare";
        case WordClass::mixed: return "mixed";
    }
    return "";
}

// Ranks 1-100, 1,001-5,000, 10,001-50,000; mixed draws each word's class at random.
std::size_t drawFromClass(WordClass kind, DeterministicBytes& bytes) {
    if (kind == WordClass::mixed) kind = WordClass(bytes.next() % 3);
    switch (kind) {
        case WordClass::common: return 1 + bytes.next() % 100;
        case WordClass::middling: return 1'001 + bytes.next() % 4'000;
        default: return 10'001 + bytes.next() % 40'000;
    }
}

void runSearchLatency(const Language& language) {
    SearchCorpus corpus(language);
    SystemClock clock;
    ContentSearchModel model(corpus.catalog(), clock);
    Database database(corpus.databasePath());

    std::printf("\nSearch latency: %" PRId64 " texts (%.0f MB), one version each, one folder; stored in %.1f s "
                "(storeContentResult, one transaction each)\n",
                options.texts, double(corpus.textBytes()) / 1e6, corpus.textsSeconds());
    const std::vector<std::pair<const char*, const char*>> plans = {
        {"catalog's statement", currentSql}, {"proposed, seek", seekSql}, {"proposed, scan", scanSql}, {"walk", walkSql}};
    for (const auto& [name, sql] : plans) {
        std::printf("EXPLAIN QUERY PLAN, %s:\n", name);
        database.query(std::string("EXPLAIN QUERY PLAN ") + sql,
                       {std::string("a"), std::string("b"), std::string("\"x\"*"), folderID, std::int64_t(300)},
                       [](const DatabaseRow& row) { std::printf("  %s\n", row.text(3).c_str()); });
    }
    std::printf("load average before: %s\n\n", loadAverage().c_str());
    std::printf("%-5s %-8s %4s %7s %5s | %8s %8s | %8s %8s | %8s %8s | %8s %8s | %7s %7s | %7s %7s\n", "words",
                "class", "n", "matches", "hits", "search50", "search95", "seek50", "seek95", "scan50", "scan95",
                "kept50", "kept95", "floor50", "floor95", "s/floor", "scan/fl");

    std::int64_t mismatches = 0, compared = 0;
    std::vector<double> allSearch, allSeek, allScan, allAdaptive;
    for (int words = 1; words <= 3; ++words) {
        for (WordClass kind : {WordClass::common, WordClass::middling, WordClass::rare, WordClass::mixed}) {
            DeterministicBytes bytes(std::uint64_t(words) * 1000 + std::uint64_t(kind) + 5);
            std::vector<double> search, seek, scan, kept, walk, adaptive, floor;
            // Each measurement stops in this cell once it has its minimum of
            // samples and has spent the cell's seconds, so a slow one cannot hold up the rest.
            auto wanted = [&](const std::vector<double>& samples) {
                double spent = 0;
                for (double ms : samples) spent += ms / 1e3;
                return int(samples.size()) < options.minimumQueries || spent < options.cellSeconds;
            };
            double matches = 0, hits = 0;
            for (int q = 0; q < options.queries; ++q) {
                std::string text;
                for (int w = 0; w < words; ++w) text += (w ? " " : "") + language.word(drawFromClass(kind, bytes));
                const auto expression = ContentSearchModel::matchExpression(text);
                if (!expression) throw std::runtime_error("no expression for " + text);

                std::optional<std::vector<RowKey>> found;
                if (int(search.size()) < options.searchQueries && wanted(search)) {
                    const auto started = Steady::now();
                    const auto outcome = model.search(ContentSearchModel::Scope::contents, {text, true, folderID});
                    search.push_back(seconds(Steady::now() - started) * 1e3);
                    found.emplace();
                    for (const auto& group : outcome.groups)
                        for (const auto& hit : group.hits)
                            found->emplace_back(group.file.id, hit.versionID, hit.capturedAt, hit.snippet);
                }
                auto timed = [&](const char* sql, std::vector<double>& into) -> std::optional<std::vector<RowKey>> {
                    if (!wanted(into)) return std::nullopt;
                    const auto begun = Steady::now();
                    auto rows = runStatement(database, sql, *expression);
                    into.push_back(seconds(Steady::now() - begun) * 1e3);
                    return rows;
                };
                const auto seekRows = timed(seekSql, seek);
                const auto scanRows = timed(scanSql, scan);
                timed(keptSql, kept);
                const auto walkRows = timed(walkSql, walk);
                // Count the matches first (the floor's work again), then walk when
                // they are many, else let the match drive.
                std::optional<std::vector<RowKey>> adaptiveRows;
                if (wanted(adaptive)) {
                    const auto begun = Steady::now();
                    const auto count = database.scalar(countSql, {*expression});
                    adaptiveRows = runStatement(database, count >= adaptiveThreshold ? walkSql : scanSql, *expression);
                    adaptive.push_back(seconds(Steady::now() - begun) * 1e3);
                }

                std::int64_t rowids = 0;
                const auto started = Steady::now();
                database.query(floorSql, {*expression}, [&](const DatabaseRow& row) { rowids += row.int64(0) > 0; });
                floor.push_back(seconds(Steady::now() - started) * 1e3);

                matches += double(rowids);
                if (scanRows) hits += double(scanRows->size());
                if (found) {
                    ++compared;
                    if ((seekRows && grouped(*seekRows) != *found) || (scanRows && grouped(*scanRows) != *found))
                        ++mismatches;
                }
                if (seekRows && scanRows && *seekRows != *scanRows) ++mismatches;
                if (walkRows && scanRows && *walkRows != *scanRows) ++mismatches;
                if (adaptiveRows && scanRows && *adaptiveRows != *scanRows) ++mismatches;
            }
            const auto s = percentiles(search), k = percentiles(seek), c = percentiles(scan),
                       e = percentiles(kept), w = percentiles(walk), a = percentiles(adaptive), f = percentiles(floor);
            allSearch.insert(allSearch.end(), search.begin(), search.end());
            allSeek.insert(allSeek.end(), seek.begin(), seek.end());
            allScan.insert(allScan.end(), scan.begin(), scan.end());
            allAdaptive.insert(allAdaptive.end(), adaptive.begin(), adaptive.end());
            const double n = double(floor.size());
            auto ratio = [](double over, double under) { return over / std::max(under, 1e-6); };
            std::printf("%-5d %-8s %4zu %7.0f %5.0f | %8.2f %8.2f | %8.2f %8.2f | %8.2f %8.2f | %8.2f %8.2f | %8.2f "
                        "%8.2f | %8.2f %8.2f | %7.3f %7.3f | %7.0f %7.1f %7.1f\n",
                        words, className(kind), search.size(), matches / n, hits / double(std::max<std::size_t>(scan.size(), 1)), s.p50, s.p95, k.p50, k.p95,
                        c.p50, c.p95, e.p50, e.p95, w.p50, w.p95, a.p50, a.p95, f.p50, f.p95, ratio(s.p95, f.p95), ratio(c.p95, f.p95),
                        ratio(a.p95, f.p95));
            std::fflush(stdout);
        }
    }
    const auto s = percentiles(allSearch), k = percentiles(allSeek), c = percentiles(allScan),
               a = percentiles(allAdaptive);
    std::printf("\nAll cells pooled: search p50 %.2f ms, p95 %.2f ms; seek p50 %.2f, p95 %.2f; scan p50 %.2f, p95 "
                "%.2f; adaptive p50 %.2f, p95 %.2f\n",
                s.p50, s.p95, k.p50, k.p95, c.p50, c.p95, a.p50, a.p95);
    std::printf("Proposed statements: %" PRId64 " disagreements (with the search's rows, over %" PRId64
                " queries the search ran, or with each other)\n",
                mismatches, compared);
    std::printf("Times in ms. matches: rows of the bare match (mean); hits: rows the scan statement returned (mean, at "
                "most %" PRId64 "); n_s: queries the search ran in the cell; the statements "
                "ran up to %d, each stopping early once it had its minimum and had spent the cell's seconds.\nsearch: ContentSearchModel::search (the catalog's statement); seek, scan: the proposed "
                "statements on a second connection; kept: their first half alone (no snippets);\nwalk: the folder's versions newest first against the matching set; adapt: a count of the matches, then walk "
                "from %" PRId64 " matches on, else scan;\nfloor: '%s', "
                "stepped to the end; ratios are of the p95s.\nload average after: %s\n",
                std::int64_t(ContentSearchModel::hitLimit), options.queries, adaptiveThreshold, floorSql, loadAverage().c_str());
    if (benchmarkSink == 0) std::printf("(no columns read)\n");
}

// --- 2. Indexing throughput -----------------------------------------------------

// The text laid out as a document: lines of about 80 characters, 50 lines a page.
std::string pdfOf(const std::string& text) {
    std::vector<std::vector<std::string>> pages(1);
    std::string line;
    auto flushLine = [&] {
        if (pages.back().size() == 50) pages.emplace_back();
        pages.back().push_back(line);
        line.clear();
    };
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find_first_of(" \n", start);
        if (end == std::string::npos) end = text.size();
        const std::string word = text.substr(start, end - start);
        if (!word.empty()) {
            if (!line.empty() && line.size() + 1 + word.size() > 80) flushLine();
            line += (line.empty() ? "" : " ") + word;
        }
        start = end + 1;
    }
    if (!line.empty()) flushLine();
    return pdf(pages);
}

enum class PayloadKind { text, pdf };

// A store (slots with payloads, the catalog) of `count` one-version files of one kind.
class IndexingStore {
public:
    IndexingStore(const Language& language, PayloadKind kind, std::int64_t count, std::uint64_t seed)
        : scratch_("vosklin-index-bench", scratchBase("/var/tmp")),
          layout_(scratch_.file("store"), fileSystem_),
          settings_(scratch_.file("settings.json"), fileSystem_, logger_),
          extractor_(fileSystem_) {
        layout_.prepareDirectories();
        catalog_ = std::make_unique<VersionCatalog>(layout_.databasePath());
        const std::string extension = kind == PayloadKind::pdf ? "pdf" : "txt";
        std::vector<FileToTrack> files;
        for (std::int64_t i = 0; i < count; ++i)
            files.push_back({folderID, "doc" + std::to_string(i) + "." + extension, std::uint64_t(5'000 + i), false,
                             extension, historyStart + double(i)});
        const auto tracked = catalog_->trackFilesForCapture(files);
        std::vector<NewVersion> versions;
        for (std::int64_t i = 0; i < count; ++i) {
            const std::string text = language.text(seed + std::uint64_t(i), kind == PayloadKind::pdf);
            const std::string bytes = kind == PayloadKind::pdf ? pdfOf(text) : text;
            payloadBytes_ += std::int64_t(bytes.size());
            const auto slot = layout_.makeSlot(tracked[std::size_t(i)].id, historyStart + double(i));
            const std::string name = "doc" + std::to_string(i) + "." + extension;
            std::ofstream(slot.directory + "/" + name, std::ios::binary) << bytes;
            NewVersion version;
            version.fileID = tracked[std::size_t(i)].id;
            version.capturedAt = historyStart + double(i);
            version.digest = hexDigest(seed + std::uint64_t(i));
            version.logicalBytes = std::int64_t(bytes.size());
            version.slot = slot.relativePath;
            version.payloadName = name;
            version.method = CloneMethod::copied;
            versions.push_back(std::move(version));
        }
        catalog_->recordVersions(versions);
        ::sync();
    }

    ContentIndexer::Report index(ContentIndexer::Pacing pacing, std::int64_t budget) {
        ContentIndexer indexer({*catalog_, layout_, fileSystem_, extractor_, settings_, machine_, clock_, logger_}, pacing);
        return indexer.runNow(budget);
    }
    void clear() { catalog_->clearContentIndex(); }
    std::int64_t payloadBytes() const { return payloadBytes_; }
    std::string path() const { return scratch_.path(); }
    std::int64_t errors() { return logger_.errors(); }

private:
    TempDir scratch_;
    PosixFileSystem fileSystem_;
    CountingLogger logger_;
    VersionStoreLayout layout_;
    Settings settings_;
    TextExtractor extractor_;
    SteadyMachine machine_;
    SystemClock clock_;
    std::unique_ptr<VersionCatalog> catalog_;
    std::int64_t payloadBytes_ = 0;
};

void runIndexing(const Language& language) {
    std::printf("\nIndexing throughput (ContentIndexer::runNow), %" PRId64 " one-version files per kind\n",
                options.indexTexts);
    std::printf("%-5s %8s %10s %9s %8s %10s %9s %9s %12s %s\n", "kind", "texts", "payload_MB", "indexed", "wall_s",
                "texts_per_s", "cpu_s", "ms_each", "paced_calc", "load average");
    const ContentIndexer::Pacing defaults;
    for (PayloadKind kind : {PayloadKind::text, PayloadKind::pdf}) {
        IndexingStore store(language, kind, options.indexTexts, kind == PayloadKind::pdf ? 900'000 : 800'000);
        const auto cpuBefore = processCpuSeconds();
        const auto started = Steady::now();
        const auto report = store.index({defaults.batchSize, 0}, ContentIndexer::unlimited);
        const double wall = seconds(Steady::now() - started);
        const double cpu = processCpuSeconds() - cpuBefore;
        const double each = wall / double(report.versions);
        // Default pacing: a batch's own work, then the pause, batch after batch.
        const double paced = double(defaults.batchSize) / (double(defaults.batchSize) * each + defaults.pauseSeconds);
        std::printf("%-5s %8" PRId64 " %10.1f %9" PRId64 " %8.2f %10.0f %9.2f %9.3f %10.1f/s %s\n",
                    kind == PayloadKind::pdf ? "pdf" : "text", report.versions, double(store.payloadBytes()) / 1e6,
                    report.indexed, wall, double(report.versions) / wall, cpu, each * 1e3, paced,
                    loadAverage().c_str());
        if (report.indexed != options.indexTexts || store.errors() != 0)
            std::printf("  !! indexed %" PRId64 " of %" PRId64 " (failed %" PRId64 ", without text %" PRId64 ")\n",
                        report.indexed, options.indexTexts, report.failed, report.withoutText);

        // The same store again with the default pacing, over fewer texts.
        store.clear();
        const auto pacedStarted = Steady::now();
        const auto pacedReport = store.index(defaults, options.pacedTexts);
        const double pacedWall = seconds(Steady::now() - pacedStarted);
        std::printf("      paced (batches of %" PRId64 ", %.1f s pause), %" PRId64 " texts: %.2f s, %.1f texts/s\n",
                    defaults.batchSize, defaults.pauseSeconds, pacedReport.versions, pacedWall,
                    double(pacedReport.versions) / pacedWall);
        std::fflush(stdout);
    }
    std::printf("paced_calc: texts/s with the default pacing implied by the unpaced time per text: "
                "batch / (batch x time per text + pause).\n");
}

// --write-texts=DIR: --texts documents of the generated language as .txt
// files, 100 to a subfolder, for bench/search-daemon-cpu.sh.
void writeTexts(const Language& language, const std::string& directory, std::int64_t count) {
    std::int64_t bytes = 0;
    for (std::int64_t i = 0; i < count; ++i) {
        char subfolder[32], name[32];
        std::snprintf(subfolder, sizeof subfolder, "/d%03" PRId64, i / 100);
        std::snprintf(name, sizeof name, "/note-%05" PRId64 ".txt", i);
        std::filesystem::create_directories(directory + subfolder);
        const std::string text = language.text(700'000 + std::uint64_t(i));
        bytes += std::int64_t(text.size());
        std::ofstream file(directory + subfolder + name, std::ios::binary);
        file << text;
        if (!file.flush()) throw std::runtime_error("cannot write " + directory + subfolder + name);
    }
    std::printf("%" PRId64 " %" PRId64 "\n", count, bytes);
}

bool flag(const char* argument, const char* name, std::string& value) {
    const std::size_t length = std::strlen(name);
    if (std::strncmp(argument, name, length) != 0 || argument[length] != '=') return false;
    value = argument + length + 1;
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        std::string value;
        if (flag(argv[i], "--texts", value)) options.texts = std::stoll(value);
        else if (flag(argv[i], "--queries", value)) options.queries = std::stoi(value);
        else if (flag(argv[i], "--cell-seconds", value)) options.cellSeconds = std::stod(value);
        else if (flag(argv[i], "--min-queries", value)) options.minimumQueries = std::stoi(value);
        else if (flag(argv[i], "--search-queries", value)) options.searchQueries = std::stoi(value);
        else if (flag(argv[i], "--index-texts", value)) options.indexTexts = std::stoll(value);
        else if (flag(argv[i], "--paced-texts", value)) options.pacedTexts = std::stoll(value);
        else if (flag(argv[i], "--only", value)) options.only = value;
        else if (flag(argv[i], "--write-texts", value)) options.writeTexts = value;
        else {
            std::fprintf(stderr, "search_bench: unknown argument %s\n", argv[i]);
            return 2;
        }
    }
    try {
        if (!options.writeTexts.empty()) {
            writeTexts(Language(), options.writeTexts, options.texts);
            return 0;
        }
        char host[256] = "";
        ::gethostname(host, sizeof host - 1);
        std::printf("search_bench on %s, %ld cores, load average %s, scratch %s (%s)\n", host,
                    ::sysconf(_SC_NPROCESSORS_ONLN), loadAverage().c_str(), scratchBase("/var/tmp").c_str(),
                    fileSystemName(scratchBase("/var/tmp")).c_str());
        const auto started = Steady::now();
        const Language language;
        std::fprintf(stderr, "Vocabulary of %zu words in %.1f s\n", Language::vocabularySize,
                     seconds(Steady::now() - started));
        if (options.only.empty() || options.only == "search") runSearchLatency(language);
        if (options.only.empty() || options.only == "index") runIndexing(language);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "search_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
