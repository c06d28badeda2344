// KTSourceSelectionView: the tree in which the user marks what a backup takes: volumes, their
// directories as they are expanded, and files. Every mark and unmark is recorded as a rule, and the
// rules are what leaves the view. Main thread.
//
// Directories are read by a worker and come in batches; the tree follows the node monitor. Rules of
// a loaded selection take effect at once, also those about rows that are not there yet: they are
// kept in their place, and dropped when the directory has been read and has no such entry.
#pragma once

#include <QTimer>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "client/selection/SourceReader.h"
#include "client/selection/SourceRules.h"
#include "client/uikit/KTColumnListView.h"
#include "kit/storage/BNodeMonitor.h"

class Preferences;

class KTSourceSelectionView : public KTColumnListView {
    Q_OBJECT
public:
    // "lst_source". `preferences` outlives the view; null: the default widths and colours.
    KTSourceSelectionView(Preferences* preferences, QWidget* parent,
                          std::shared_ptr<kit::MountSource> mounts = kit::MountSource::System(),
                          const std::string& variableData = "/var");
    ~KTSourceSelectionView() override;

    enum Column { kIcon, kName, kSize, kAttributes, kModified, kNode };

    // --- the selection --------------------------------------------------------------------------
    void MultiSelect(KTRow row) override;
    void MultiDeselect(KTRow row) override;
    void MultiSelectAll(bool select) override;  // false: also forgets every rule
    // Anything at all is selected, be its row there or not.
    bool HasSelection() const;
    void GetSelection(BMessage* message) const { *message = fRules.Message(); }
    // Applies the rules of another selection to what is selected already. `expand`: reads the
    // directories that the rules lead through.
    void SetSelection(const BMessage& message, bool expand);
    void RecordSelection(KTRow row, bool include);

    // Selection files. `request` is the answer of a file panel. 0: good; else the failing step
    // (core::HeaderSave, core::HeaderLoad), or 4 when nothing is selected, with `request` emptied.
    int32_t SaveSelection(BMessage& request, const BMessage& selection) const;
    static int32_t LoadSelection(const BMessage& request, BMessage* selection);

    // --- the tree -------------------------------------------------------------------------------
    void Expand(KTRow row) override;
    void Collapse(KTRow row) override;  // ends the reading of the row
    void GetDirectory(KTRow row);       // drops what is below it and reads it anew
    void InsertAllSubdirs(KTRow row);   // reads the directories below it that are not read yet
    void FreeSubItems(KTRow row, bool self);
    bool IsReading(KTRow row) const { return fReading.contains(row); }
    bool IsIdle() const;  // nothing is being read or waits to be shown

    void ColumnWidthChanged(int column, float width) override;
    QString CellText(KTRow row, int column) const override;
    QIcon CellIcon(KTRow row) const override;
    QColor CellColor(uint8_t colorIndex) const override;
    KTRowStore::Mark CellMark(KTRow row) const override;
    QString SpokenRow(KTRow row) const override;
    void MessageReceived(BMessage& message) override;
    void doItemsLayout() override;

private:
    struct Volume {
        std::string path;
        uint64_t device = 0;
    };
    // What a reader's order is for.
    struct Reading {
        KTRow row = kNoRow;
        bool afresh = false;  // of an empty row; else what is there is brought up to date
        std::vector<std::string> names;  // only these
        std::unordered_set<std::string> seen;
    };
    struct NodeHash {
        size_t operator()(const node_ref& ref) const {
            return std::hash<uint64_t>{}(ref.node * 0x9E3779B97F4A7C15U ^ ref.device);
        }
    };
    // Where a rule's path leads.
    struct Walk {
        enum { Found, Unread, Missing } end = Missing;
        KTRow row = kNoRow;  // the last one that is there
    };

    static std::vector<KTColumn> Columns(const Preferences* preferences);
    std::string PathOf(KTRow row, bool onDisk) const;
    KTRow VolumeOf(KTRow row) const;
    bool IsDirectory(KTRow row) const;
    bool IsUnread(KTRow row) const;
    bool CanBeRuled(KTRow row) const;

    // Rules and rows (KTSourceSelectionView.cpp)
    void Apply(std::string_view rule, bool expand);
    Walk WalkTo(const std::vector<std::string>& components) const;
    void ReadFor(KTRow row);
    void SettleOpenRules();
    void MarkUpwards(KTRow row);
    void MarkByRules(KTRow row);
    void UnmarkWithoutRules(KTRow row);
    void UnmarkEmptied(KTRow row);

    // Reading and following (KTSourceTree.cpp)
    void VolumesListed(const BMessage& message);
    void Opened(const BMessage& message);
    void InsertWaiting();
    void InsertBatch(Reading& reading, const BMessage& batch);
    void ReadEnded(int64_t read, const BMessage& message);
    void Update(KTRow row, const BMessage& batch, int32_t index);
    void StopReading(KTRow row);
    void Forget(KTRow row, bool self);
    void Sync(KTRow row, std::vector<std::string> names);
    void HandleEvents();
    void EntryMoved(const BMessage& message);
    void RemoveVanished(KTRow row);
    KTRow RowOfDirectory(uint64_t device, uint64_t node) const;
    KTRow RowOfEvent(const BMessage& message, const char* directory, const char* name) const;

    Preferences* fPreferences;
    SourceRules fRules;
    std::shared_ptr<BNodeMonitor> fMonitor;
    std::unique_ptr<SourceReader> fReader;

    bool fVolumesKnown = false;
    bool fSelectAllLater = false;  // asked for before the volumes were known
    std::unordered_map<KTRow, Volume> fVolumes;
    std::set<uint64_t> fMounted;  // devices that came while we watched

    std::unordered_map<int64_t, Reading> fReadings;
    std::unordered_map<KTRow, int64_t> fReading;  // rows whose directory is being read whole
    std::unordered_set<KTRow> fUnreadable;
    std::unordered_map<KTRow, std::vector<std::string>> fTouched;  // to look at when it is read
    std::unordered_map<node_ref, KTRow, NodeHash> fDirectories;    // that are watched

    std::deque<BMessage> fWaiting;  // batches and ends, in their order
    QTimer fInsertLater;
    double fLayoutMs = 0;
    std::deque<BMessage> fEvents;
    QTimer fEventsLater;
};
