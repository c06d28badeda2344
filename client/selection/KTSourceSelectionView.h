// KTSourceSelectionView: the tree in which the user marks what a backup takes: volumes, their
// directories as they are expanded, and files. Main thread.
//
// Directories are read by a worker and come in batches; the tree follows the node monitor.
#pragma once

#include <QTimer>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "client/selection/KTRuledListView.h"
#include "client/selection/SourceReader.h"
#include "client/selection/VolumeRows.h"
#include "kit/storage/BNodeMonitor.h"

class Preferences;

class KTSourceSelectionView : public KTRuledListView {
    Q_OBJECT
public:
    // "lst_source". `preferences` outlives the view; null: the default widths and colours.
    KTSourceSelectionView(Preferences* preferences, QWidget* parent,
                          std::shared_ptr<kit::MountSource> mounts = kit::MountSource::System(),
                          const std::string& variableData = "/var");
    ~KTSourceSelectionView() override;

    enum Column { kIcon, kName, kSize, kAttributes, kModified, kNode };

    // --- the tree -------------------------------------------------------------------------------
    void Expand(KTRow row) override;
    void Collapse(KTRow row) override;  // ends the reading of the row
    void GetDirectory(KTRow row);       // drops what is below it and reads it anew
    void FreeSubItems(KTRow row, bool self);
    bool IsReading(KTRow row) const override { return fReading.contains(row); }
    bool IsIdle() const;  // nothing is being read or waits to be shown

    void ColumnWidthChanged(int column, float width) override;
    QString CellText(KTRow row, int column) const override;
    QIcon CellIcon(KTRow row) const override;
    QColor CellColor(uint8_t colorIndex) const override;
    void MessageReceived(BMessage& message) override;
    void doItemsLayout() override;

protected:
    std::string RulePath(KTRow row) const override { return PathOf(row, false); }
    bool IsDirectory(KTRow row) const override;
    KTRow EntryBelow(KTRow row, std::string_view name) const override;
    bool IsTopKnown() const override { return fVolumes.AreKnown(); }
    void Read(KTRow row) override { GetDirectory(row); }
    SelectionFile::Kind SelectionFiles() const override { return SelectionFile::kBackup; }
    QString NameOf(KTRow row) const override;

private:
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
    static std::vector<KTColumn> Columns(const Preferences* preferences);
    std::string PathOf(KTRow row, bool onDisk) const;
    KTRow VolumeOf(KTRow row) const;

    // Reading and following (KTSourceTree.cpp)
    void VolumesListed(const BMessage& message);
    void AddVolume(const BMessage& message, int32_t place);
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
    std::shared_ptr<BNodeMonitor> fMonitor;
    std::unique_ptr<SourceReader> fReader;

    VolumeRows fVolumes;

    std::unordered_map<int64_t, Reading> fReadings;
    std::unordered_map<KTRow, int64_t> fReading;  // rows whose directory is being read whole
    std::unordered_map<KTRow, std::vector<std::string>> fTouched;  // to look at when it is read
    std::unordered_map<node_ref, KTRow, NodeHash> fDirectories;    // that are watched

    std::deque<BMessage> fWaiting;  // batches and ends, in their order
    QTimer fInsertLater;
    double fLayoutMs = 0;
    std::deque<BMessage> fEvents;
    QTimer fEventsLater;
};
