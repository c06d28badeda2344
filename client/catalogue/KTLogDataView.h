// KTLogDataView: the backups and what is in them, as a tree in which the user marks what to restore
// and says where to. At the top stand the backup sets, below them their backups, below those
// volumes, directories and files, fetched from the server as they are expanded. Main thread.
//
// Besides the rules of the marks it records redirections (core/selection/Redirections.h); both
// together are the restore selection.
#pragma once

#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "client/selection/KTRuledListView.h"
#include "core/selection/Redirections.h"

class Preferences;
class ServerLink;

class KTLogDataView : public KTRuledListView {
    Q_OBJECT
public:
    enum Column {
        kIcon,
        kName,  // title of a set, kind of a backup, name of an entry
        kSize,
        kDate,
        kType,      // a Target
        kFile,      // the name: a component of the paths in records
        kRedirect,  // not stored; follows from the records
        kMedia,     // at the top the key of the set
        kOffset,
        kIndex
    };
    enum class Target : int32_t {
        Set = -2,
        Backup = -1,
        File = 0,
        Directory = 1,
        Link = 2,
        Volume = 3
    };

    // "lst_catalogue". Asks for the backups at once. Both outlive the view; `preferences` may be
    // null: the default widths and colours.
    KTLogDataView(ServerLink* server, Preferences* preferences, QWidget* parent);
    ~KTLogDataView() override;
    // Where nothing is sent anywhere: no column for it, and no drops.
    void HideRedirections();

    // --- the selection --------------------------------------------------------------------------
    void MultiSelectAll(bool select) override;  // false: also forgets the redirections
    void RecordSelection(KTRow row, bool include) override;
    // Rules and redirections.
    void GetSelectionList(BMessage* message) const;
    void SetSelection(const BMessage& message, bool fetch) override;
    // Takes over the redirections of another selection, as far as they are about what is marked.
    void SetRedirection(const BMessage& message);

    // --- redirections ---------------------------------------------------------------------------
    // Of a marked row, to a directory; others are left as they are.
    void AddRedirection(KTRow row, std::string_view target);
    void ClearRedirection(KTRow row);
    void ClearAllRedirections();
    void RecordRedirection(KTRow row, bool redirect, std::string_view target);

    // --- the tree -------------------------------------------------------------------------------
    void GetBackups();  // asks for them again; what is there and still listed stays
    void GetLogData(KTRow row) { Read(row); }
    void InsertList(const BMessage& list, KTRow parent);
    void RemoveList(std::string_view name);
    // The set with that key; where a key is 0, the one with that title.
    KTRow SearchEntry(int32_t key, std::string_view title) const;
    bool IsReading(KTRow row) const override { return fReading.contains(row); }
    bool IsIdle() const { return fKnown && fReadings.empty(); }

    // --- rows -----------------------------------------------------------------------------------
    Target TargetOf(KTRow row) const;
    KTRow BackupOf(KTRow row) const;  // kNoRow for a set
    std::string PathOf(KTRow row) const { return RulePath(row); }
    std::string NameOfBackup(KTRow backup) const;
    std::string TitleOf(KTRow backup) const;  // of its set; "" when it has none
    QString DateOf(KTRow row) const { return CellText(row, kDate); }
    std::vector<KTRow> MarkedBackups() const;  // anything in them
    std::vector<KTRow> WholeBackups() const;   // covered wholly by the rules
    // "/Backup/Volume/path" of the first thing that is restored with all that is in it; "" when
    // nothing is marked.
    std::string FirstMarked() const;

    void Expand(KTRow row) override;
    void MessageReceived(BMessage& message) override;
    void ColumnWidthChanged(int column, float width) override;
    QString CellText(KTRow row, int column) const override;
    QIcon CellIcon(KTRow row) const override;
    QColor CellColor(uint8_t colorIndex) const override;
    QString SpokenRow(KTRow row) const override;

signals:
    // The user has expanded a backup that opens only with a password.
    void Locked(KTRow backup);
    void RedirectionsChanged();

protected:
    std::string RulePath(KTRow row) const override;
    bool IsDirectory(KTRow row) const override;
    KTRow EntryBelow(KTRow row, std::string_view name) const override;
    bool IsTopKnown() const override { return fKnown; }
    void Read(KTRow row) override;
    SelectionFile::Kind SelectionFiles() const override;
    QString NameOf(KTRow row) const override;

    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    // Rows hold them as numbers; the view gives them a colour.
    enum RowColor : uint8_t {
        kNormalColor,
        kBackupColor,
        kDirectoryColor,
        kLinkColor,
        kVolumeColor
    };
    static RowColor ColorOf(Target target);
    // Fetching, inserting and removing rows (KTLogDataTree.cpp)
    void Ask(KTRow row, BMessage question);
    void Answered(const BMessage& message);
    void TopAnswered(const std::optional<BMessage>& answer);
    void InsertBackup(const BMessage& list, int32_t index);
    void InsertEntries(const BMessage& list, KTRow parent);
    void RemoveBackup(KTRow backup);
    void ForgetReading(KTRow row);
    void EndReadings();
    KTRow RowOfBackup(std::string_view name) const;
    void RedirectionsAreNew();
    const core::Redirections& Redirected() const;

    ServerLink* fServer;
    Preferences* fPreferences;
    bool fKnown = false;
    int32_t fNumber = 0;  // of the last question
    int32_t fTopNumber = 0;
    std::unordered_map<int32_t, KTRow> fReadings;
    std::unordered_map<KTRow, int32_t> fReading;
    std::unordered_set<KTRow> fLocked;
    KTRow fAsked = kNoRow;  // what the user wants to see

    BMessage fRedirections;  // the records
    mutable std::optional<core::Redirections> fParsed;
};
