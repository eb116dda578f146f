#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace vosklin {

// Why a version's stored bytes were not handed out. Each message is one line
// for the user and names the version.
class StoredPayloadError : public std::runtime_error {
public:
    enum class Kind {
        missing,       // nothing is stored where the catalog says
        outsideStore,  // the catalog's slot or name leads out of the store
        damaged,       // the bytes no longer match the version's digest
    };

    static StoredPayloadError missing(std::int64_t version) {
        return {Kind::missing, "The stored copy of version " + std::to_string(version) + " is missing from the store"};
    }
    // `recorded`: the slot and name as the catalog has them.
    static StoredPayloadError outsideStore(std::int64_t version, const std::string& recorded) {
        return {Kind::outsideStore, "The stored copy of version " + std::to_string(version) +
                                        " is recorded outside the store (as " + recorded + "); it is not read"};
    }
    static StoredPayloadError damaged(std::int64_t version) {
        return {Kind::damaged, "The stored copy of version " + std::to_string(version) +
                                   " is damaged: its content no longer matches its digest"};
    }

    Kind kind() const { return kind_; }

private:
    StoredPayloadError(Kind kind, const std::string& what) : std::runtime_error(what), kind_(kind) {}

    Kind kind_;
};

}  // namespace vosklin
