// The catalog's content search statement, against a reference that says what
// it must return, over random catalogs: shared digests across files and
// folders, texts missing or without text, ties on capture time, deleted files,
// prefix and accented words, and limits that cut through ties.
//
// The reference is the plain join: every matching version with its snippet,
// sorted, then cut. The catalog finds the kept versions first and builds
// snippets for those alone, which is far faster on a big history; the two must
// agree row for row, snippet included.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <tuple>

#include "catalog/Database.h"
#include "catalog/VersionCatalog.h"
#include "search/ContentSearchModel.h"
#include "support/TempDirectory.h"

namespace vosklin {
namespace {

using test::TempDirectory;

const char* const reference =
    "SELECT f.id, f.folder_id, f.rel_path, f.deleted_at, v.id, v.captured_at, snippet(content_fts, 0, ?1, ?2, '…', "
    "12) FROM content_fts JOIN content_texts c ON c.id = content_fts.rowid JOIN versions v ON v.digest = c.digest "
    "JOIN files f ON f.id = v.file_id WHERE content_fts MATCH ?3 AND v.folder_id = ?4 ORDER BY v.captured_at DESC, "
    "v.id DESC LIMIT ?5";

using Row = std::tuple<std::int64_t, std::string, std::string, std::optional<double>, std::int64_t, double, std::string>;

std::vector<Row> rows(Database& database, const char* sql, const std::string& expression, const std::string& folder,
                      std::int64_t limit) {
    std::vector<Row> out;
    database.query(sql, {std::string("<"), std::string(">"), expression, folder, limit}, [&](const DatabaseRow& row) {
        out.emplace_back(row.int64(0), row.text(1), row.text(2), row.optionalReal(3), row.int64(4), row.real(5),
                         row.text(6));
    });
    return out;
}

TEST(ContentSearchQueryPropertyTest, TheCatalogsStatementReturnsThePlainJoinsRowsInOrder) {
    const std::vector<std::string> words = {"cat",  "catalog", "cattle", "café", "cafe",  "naïve", "naive", "zebra",
                                            "zero", "report",  "the",    "a",    "résumé", "budget", "plan"};
    const std::vector<std::string> folders = {"folder-a", "folder-b"};
    std::int64_t nonEmpty = 0, cut = 0;
    for (std::uint32_t seed = 1; seed <= 30; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        auto below = [&](std::size_t n) { return std::size_t(random() % n); };
        TempDirectory directory;
        VersionCatalog catalog(directory / "index.sqlite");

        const std::size_t digestCount = 5 + below(40);
        std::set<std::string> used;
        for (int f = 0, files = 5 + int(below(30)); f < files; ++f) {
            const auto& folder = folders[below(2)];
            const auto file = catalog.upsertFile(folder, "f" + std::to_string(f) + ".txt", std::nullopt, false,
                                                 std::string("txt"));
            for (int v = 0, versions = 1 + int(below(5)); v < versions; ++v) {
                NewVersion version;
                version.fileID = file.id;
                version.capturedAt = 1000.0 + double(below(20));  // ties on purpose
                version.digest = "d" + std::to_string(below(digestCount));
                version.slot = "versions/" + std::to_string(file.id) + "/" + std::to_string(v);
                version.payloadName = file.relativePath;
                version.method = CloneMethod::copied;
                catalog.recordVersion(version);
                used.insert(version.digest);
            }
            if (below(6) == 0) catalog.markDeleted(file.id, 2000.0 + f);
        }
        for (const auto& digest : used) {
            const auto kind = below(8);
            if (kind == 0) continue;  // not indexed yet
            if (kind == 1) {
                catalog.storeContentResult(digest, ContentState::noText, 3000, 0, std::nullopt);
                continue;
            }
            std::string text;
            for (std::size_t w = 0, n = 1 + below(40); w < n; ++w) text += (w ? " " : "") + words[below(words.size())];
            catalog.storeContentResult(digest, ContentState::indexed, 3000, std::int64_t(text.size()), text);
        }

        Database database(directory / "index.sqlite");
        for (int q = 0; q < 25; ++q) {
            std::string text;
            for (std::size_t w = 0, n = 1 + below(3); w < n; ++w) {
                std::string word = words[below(words.size())];
                if (below(3) == 0 && word.size() > 2) word.resize(2);  // a word still being typed
                text += (w ? " " : "") + word;
            }
            const auto expression = *ContentSearchModel::matchExpression(text);
            const auto& folder = folders[below(2)];
            const std::int64_t limit = below(4) == 0 ? 300 : std::int64_t(1 + below(12));
            SCOPED_TRACE(expression + " in " + folder + ", limit " + std::to_string(limit));

            const auto expected = rows(database, reference, expression, folder, limit);
            const auto hits = catalog.searchContents("<", ">", expression, folder, limit);
            ASSERT_EQ(hits.size(), expected.size());
            for (std::size_t i = 0; i < hits.size(); ++i) {
                const auto& [fileID, folderID, path, deletedAt, versionID, capturedAt, snippet] = expected[i];
                EXPECT_EQ(std::tie(hits[i].file.id, hits[i].file.folderID, hits[i].file.relativePath,
                                   hits[i].file.deletedAt, hits[i].hit.versionID, hits[i].hit.capturedAt,
                                   hits[i].hit.snippet),
                          std::tie(fileID, folderID, path, deletedAt, versionID, capturedAt, snippet));
            }
            nonEmpty += !expected.empty();
            cut += std::int64_t(expected.size()) == limit;
        }
    }
    // The random catalogs must exercise matches and limits that cut, or the comparison says little.
    EXPECT_GT(nonEmpty, 300);
    EXPECT_GT(cut, 100);
}

}  // namespace
}  // namespace vosklin
