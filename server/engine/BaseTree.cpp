#include "server/engine/BaseTree.h"

namespace server {

namespace {

int64_t Nanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

void BaseTree::Open(int32_t directory, std::string_view path) {
    fPath = path;
    fNext.reset();
    const auto place = directory == kCatalogueRoot && !path.empty()
                           ? std::nullopt
                           : fCatalogue.DirectoryAt(directory);
    if (!place) return;
    fCatalogue.List(*place);
    fNext = fCatalogue.Next();
}

const CatalogueEntry* BaseTree::Find(std::string_view name) {
    while (fNext && std::string_view(fNext->name) < name) {
        Tell(*fNext);
        fNext = fCatalogue.Next();
    }
    if (!fNext || fNext->name != name) return nullptr;
    fFound = std::move(fNext);
    fNext = fCatalogue.Next();
    return &*fFound;
}

void BaseTree::Close() {
    for (; fNext; fNext = fCatalogue.Next())
        Tell(*fNext);
}

bool BaseTree::IsSame(const CatalogueEntry& entry, const struct stat& info) {
    const bool hasSize = S_ISREG(info.st_mode) || S_ISLNK(info.st_mode);
    return !entry.incomplete && entry.mode == info.st_mode && entry.node == info.st_ino &&
           entry.modified == Nanoseconds(info.st_mtim) &&
           entry.changed == Nanoseconds(info.st_ctim) && entry.uid == info.st_uid &&
           entry.gid == info.st_gid && (!hasSize || entry.size == info.st_size);
}

}  // namespace server
