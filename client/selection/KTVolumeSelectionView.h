// KTVolumeSelectionView: the list of whole volumes that the quick backup takes. The marks are what
// leaves it: a rule for each marked volume, made when it is asked for. Main thread.
//
// The volumes are looked at by a worker: at the start, when one is mounted or unmounted, and, to
// see how full they are, whenever the list is shown.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/selection/SelectionFile.h"
#include "client/selection/VolumeRows.h"
#include "client/uikit/KTColumnListView.h"
#include "kit/storage/BNodeMonitor.h"

class Preferences;

class KTVolumeSelectionView : public KTColumnListView {
    Q_OBJECT
public:
    // "lst_volumes". `preferences` outlives the view; null: the default widths and colours.
    KTVolumeSelectionView(Preferences* preferences, QWidget* parent,
                          std::shared_ptr<kit::MountSource> mounts = kit::MountSource::System());
    ~KTVolumeSelectionView() override;

    enum Column { kIcon, kName, kSize };

    void MultiSelectAll(bool select) override;
    bool HasSelection() const;
    // Puts one rule for each marked volume in place of the rules that the message has.
    void GetSelection(BMessage* message) const;
    // Marks the volumes that the include rules lead into, whatever in them they are about; the
    // others stay as they are. Rules of volumes that are not mounted say nothing.
    void SetSelection(const BMessage& message);
    int32_t SaveSelection(BMessage& request, const BMessage& selection) const;
    int32_t LoadSelection(const BMessage& request, BMessage* selection) const;

    // How much of the volume is in use, 0 to 1; below 0 when it does not say.
    double Fullness(KTRow row) const;

    void ColumnWidthChanged(int column, float width) override;
    QString CellText(KTRow row, int column) const override;
    QIcon CellIcon(KTRow row) const override;
    QColor CellColor(uint8_t colorIndex) const override;
    QString RowToolTip(KTRow row) const override;
    QString SpokenRow(KTRow row) const override;
    void MessageReceived(BMessage& message) override;

protected:
    void showEvent(QShowEvent* event) override;

private:
    static std::vector<KTColumn> Columns(const Preferences* preferences);
    void VolumesListed(const BMessage& message);
    void Mark(const std::vector<std::string>& names);
    QString FullnessInWords(KTRow row) const;

    Preferences* fPreferences;
    std::shared_ptr<BNodeMonitor> fMonitor;
    std::unique_ptr<SourceReader> fReader;
    VolumeRows fVolumes;
    // What was asked for before the volumes were known.
    std::vector<std::string> fMarkLater;
    bool fMarkAllLater = false;
};
