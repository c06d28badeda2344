// Work on entries in an order in which every disc is asked for once.
//
// Where all discs are there it is handed to the crew as it comes. Else it waits here until all of
// it is known, and goes disc by disc; the crew should then be of one thread, so that none is still
// reading what another one wants taken out.
#pragma once

#include <map>
#include <utility>
#include <vector>

#include "server/catalogue/CatalogueReader.h"
#include "server/engine/BackupContent.h"
#include "server/engine/FrameCrew.h"

namespace server {

template <class Task>
class DiscOrder {
public:
    // All must outlive it.
    DiscOrder(FrameCrew<Task>& crew, const BackupContent& content, CatalogueReader& catalogue)
        : fCrew(crew),
          fContent(content),
          fCatalogue(catalogue),
          fNeedsDiscs(content.NeedsDiscs()) {}

    bool NeedsDiscs() const { return fNeedsDiscs; }

    void Add(int64_t frame, Task task) {
        if (!fNeedsDiscs) {
            fCrew.Add(frame, std::move(task));
            return;
        }
        if (frame != fFrame) {
            const auto known = fCatalogue.FrameAt(frame);
            fFrame = frame;
            fDisc = known ? fContent.DiscOf(*known) : Disc{};
        }
        fWaiting[fDisc].emplace_back(frame, std::move(task));
    }

    // Returns when everything is done.
    void Finish() {
        for (auto& [disc, tasks] : fWaiting) {
            for (auto& [frame, task] : tasks)
                fCrew.Add(frame, std::move(task));
            tasks = {};
        }
        fWaiting.clear();
        fCrew.Finish();
    }

private:
    using Disc = std::pair<int32_t, int>;  // place in the chain, number

    FrameCrew<Task>& fCrew;
    const BackupContent& fContent;
    CatalogueReader& fCatalogue;
    const bool fNeedsDiscs;
    int64_t fFrame = -1;
    Disc fDisc;
    std::map<Disc, std::vector<std::pair<int64_t, Task>>> fWaiting;
};

// How many threads read a backup.
inline size_t ReadingThreads(const BackupContent& content, const EngineConfig& config) {
    if (content.NeedsDiscs()) return 1;
    if (config.workers > 0) return static_cast<size_t>(config.workers);
    return std::max(2U, std::thread::hardware_concurrency());
}

}  // namespace server
