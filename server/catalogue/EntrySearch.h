// Finds entries of all backups by a part of their names ('KTfd'), with an index per backup that is
// made where it is missing. One thread at a time, beside whatever else uses the store.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "server/catalogue/CatalogueStore.h"

namespace server {

class EntrySearch {
public:
    static constexpr int32_t kUsual = 100, kMost = 10'000;  // matches

    // `damaged` is told of a catalogue that cannot be searched.
    using Damaged = std::function<void(const std::string& backup, const kit::Error& error)>;
    EntrySearch(CatalogueStore& store, Damaged damaged)
        : fStore(store), fDamaged(std::move(damaged)) {}

    // Makes the index of a backup, so that a search need not.
    void Prepare(const std::string& backup);
    // 'KTfe', or 'NONE': at most `most` of what there is, the newest backup first.
    BMessage Find(const std::string& text, int32_t most);

private:
    struct Match;
    kit::Result<std::vector<Match>> FindIn(const std::string& backup, const std::string& folded,
                                           size_t most) const;

    CatalogueStore& fStore;
    const Damaged fDamaged;
};

}  // namespace server
