// VolumeRows: the mounted volumes that a list shows, and the rows they have in it. A SourceReader
// looks; what it found is compared with the rows here, and the list does what came out. Main
// thread.
#pragma once

#include <QColor>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "client/selection/SourceReader.h"
#include "client/uikit/KTRowStore.h"
#include "kit/message/BMessage.h"

class Preferences;

class VolumeRows {
public:
    struct Volume {
        std::string path;  // mount point
        uint64_t device = 0;
        int64_t capacity = 0, used = 0;  // bytes; of one that does not say 0
    };
    // What a look found; places are those of the volumes in its message.
    struct News {
        std::vector<KTRow> gone;
        std::vector<std::pair<KTRow, int32_t>> stay;
        std::vector<int32_t> come;
    };

    // Volumes have a colour of their own; null: the default one.
    static constexpr uint8_t kColor = 1;
    static QColor Color(const Preferences* preferences);

    // Orders a look. One still under way is dropped: what it saw may be out of date.
    void Look(SourceReader& reader);
    // A mount or unmount of the node monitor. What is mounted from now on is shown whatever it is,
    // of the others those that stay beyond a restart.
    void MountsChanged(const BMessage& event);
    // Nothing for the answer to a look that was dropped. The list adds and removes the rows.
    std::optional<News> Listed(const BMessage& message);
    bool AreKnown() const { return fKnown; }  // a look has been answered

    void Set(KTRow row, const BMessage& message, int32_t place);
    void Remove(KTRow row) { fVolumes.erase(row); }
    const Volume* Find(KTRow row) const;  // null when it is no volume's; valid until rows change

private:
    std::unordered_map<KTRow, Volume> fVolumes;
    std::set<uint64_t> fMounted;  // devices that came while we watched
    int64_t fLook = 0;            // the order under way
    bool fKnown = false;
};
