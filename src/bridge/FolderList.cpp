#include "bridge/FolderList.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <stdexcept>
#include <nlohmann/json.hpp>

#include "bridge/FolderListError.h"
#include "platform/AtomicFile.h"
#include "platform/DisplayName.h"
#include "platform/FileSystemError.h"
#include "platform/JsonInteger.h"
#include "platform/PathJson.h"
#include "platform/PathNames.h"

namespace vosklin {
namespace {

nlohmann::json encode(const WatchedFolder& folder) {
    nlohmann::json json;
    json["id"] = folder.id;
    putPath(json, "path", folder.path);
    json["mode"] = std::string(toString(folder.mode));
    json["isPaused"] = folder.isPaused;
    if (folder.budget.kind == FolderBudget::Kind::unlimited) json["budgetBytes"] = "unlimited";
    if (folder.budget.kind == FolderBudget::Kind::bytes) json["budgetBytes"] = folder.budget.bytes;
    json["st_dev"] = folder.device;
    json["st_ino"] = folder.inode;
    return json;
}

WatchedFolder decode(const nlohmann::json& json) {
    WatchedFolder folder;
    folder.id = json.at("id").get<std::string>();
    folder.path = getPath(json, "path");
    folder.mode = captureModeFromString(json.value("mode", "automatic")).value_or(CaptureMode::automatic);
    folder.isPaused = json.value("isPaused", false);
    // Absent (or null) is automatic. Anything else that is not a budget the folder command
    // could have set is refused: read as automatic, it would quietly change what is kept.
    if (auto budget = json.find("budgetBytes"); budget != json.end() && !budget->is_null()) {
        if (budget->is_string() && budget->get<std::string>() == "unlimited") {
            folder.budget.kind = FolderBudget::Kind::unlimited;
        } else if (budget->is_number_integer() && !(budget->is_number_unsigned() && budget->get<std::uint64_t>() >
                                                                                   std::uint64_t(INT64_MAX)) &&
                   budget->get<std::int64_t>() >= FolderBudget::smallestBytes) {
            folder.budget = {FolderBudget::Kind::bytes, budget->get<std::int64_t>()};
        } else {
            throw std::runtime_error("the budget of folder " + folder.id + " is " + budget->dump() +
                                     ", neither a number of bytes from 1000000 up nor \"unlimited\"");
        }
    }
    for (auto [key, field] : {std::pair{"st_dev", &folder.device}, std::pair{"st_ino", &folder.inode}}) {
        if (!json.contains(key)) continue;
        auto number = jsonInteger<std::uint64_t>(json.at(key));
        if (!number) throw std::invalid_argument(std::string(key) + " is not a device or inode number");
        *field = *number;
    }
    return folder;
}

}  // namespace

FolderList::FolderList(std::string path, FileSystem& fileSystem) : path_(std::move(path)), fileSystem_(fileSystem) {}

FolderList::Contents FolderList::load() {
    std::string text;
    try {
        text = readWholeFile(fileSystem_, path_);
    } catch (const FileSystemError& error) {
        if (error.errorNumber() == ENOENT) return {};
        throw FolderListError(FolderListError::Kind::malformedList,
                              "Cannot read the folder list " + path_ + ": " + error.what());
    }
    return parse(text, path_);
}

FolderList::Contents FolderList::parse(std::string_view text, const std::string& path) {
    try {
        auto json = nlohmann::json::parse(text);
        Contents contents;
        for (const auto& entry : json.at("folders")) contents.folders.push_back(decode(entry));
        if (auto retired = json.find("retired"); retired != json.end())
            for (const auto& entry : *retired) contents.retired.push_back(decode(entry));
        return contents;
    } catch (const std::exception& error) {
        throw FolderListError(FolderListError::Kind::malformedList,
                              "The folder list " + path + " is damaged (" + error.what() +
                                  "); fix or move it aside, nothing was changed");
    }
}

std::vector<WatchedFolder> FolderList::folders() { return load().folders; }

std::vector<WatchedFolder> FolderList::retired() { return load().retired; }

void FolderList::save(const Contents& contents) {
    nlohmann::json json;
    json["folders"] = nlohmann::json::array();
    for (const auto& folder : contents.folders) json["folders"].push_back(encode(folder));
    if (!contents.retired.empty()) {
        json["retired"] = nlohmann::json::array();
        for (const auto& folder : contents.retired) json["retired"].push_back(encode(folder));
    }
    makeDirectories(fileSystem_, parentPath(path_), 0700);
    writeFileAtomically(fileSystem_, path_, json.dump(2) + "\n", 0600);
}

std::string FolderList::canonical(const std::string& path) {
    try {
        return fileSystem_.resolvedPath(absolutePath(path));
    } catch (const FileSystemError&) {
        return resolveParentLinks(fileSystem_, path);  // a deleted file is still known by its path
    }
}

WatchedFolder FolderList::require(const std::string& idOrPath) {
    auto all = folders();
    std::string upper = idOrPath;
    for (char& c : upper) c = char(std::toupper(static_cast<unsigned char>(c)));
    for (const auto& folder : all)
        if (folder.id == upper) return folder;
    const std::string wanted = canonical(idOrPath);
    const std::string absolute = absolutePath(idOrPath);
    for (const auto& folder : all)
        if (folder.path == wanted || folder.path == absolute) return folder;
    throw FolderListError(FolderListError::Kind::unknownFolder,
                          "No watched folder is " + DisplayName::of(idOrPath) + " (see 'vosklin folder list')");
}

std::optional<std::pair<WatchedFolder, std::string>> FolderList::folderContaining(const std::string& path) {
    const std::string wanted = canonical(path);
    for (const auto& folder : folders()) {
        if (wanted == folder.path) return std::make_pair(folder, std::string());
        std::string relative;
        if (relativeTo(folder.path, wanted, relative)) return std::make_pair(folder, relative);
    }
    return std::nullopt;
}

WatchedFolder FolderList::append(WatchedFolder folder) {
    auto contents = load();
    auto earlier = std::find_if(contents.retired.begin(), contents.retired.end(),
                                [&](const WatchedFolder& retired) { return retired.path == folder.path; });
    if (earlier != contents.retired.end()) {
        folder.id = earlier->id;
        contents.retired.erase(earlier);
    }
    contents.folders.push_back(folder);
    save(contents);
    return folder;
}

void FolderList::replace(const WatchedFolder& folder) {
    auto contents = load();
    for (auto& existing : contents.folders)
        if (existing.id == folder.id) existing = folder;
    save(contents);
}

void FolderList::remove(const std::string& id, bool keepHistory) {
    auto contents = load();
    auto found = std::find_if(contents.folders.begin(), contents.folders.end(),
                              [&](const WatchedFolder& folder) { return folder.id == id; });
    if (found == contents.folders.end()) return;
    if (keepHistory) {
        std::erase_if(contents.retired, [&](const WatchedFolder& retired) { return retired.path == found->path; });
        contents.retired.push_back(*found);
    }
    contents.folders.erase(found);
    save(contents);
}

}  // namespace vosklin
