// KTFoundBackups: the list of the insert window ("col_listview"): the backups that the server found
// on a destination. Marked ones are to be inserted. Main thread.
#pragma once

#include <string>
#include <vector>

#include "client/uikit/KTColumnListView.h"

class Preferences;

class KTFoundBackups : public KTColumnListView {
    Q_OBJECT
public:
    enum Column { kIcon, kTitle, kDate, kId };
    // What a backup is chosen by, and what it is called.
    struct Backup {
        std::string id, title;
    };

    KTFoundBackups(Preferences* preferences, QWidget* parent);

    // Shows what a 'ktvd' names: "title", "ID", "date" at equal indexes; a row for each "title".
    void SetScanResult(const BMessage& answer);
    std::vector<Backup> Marked() const;
    KTRow RowOfId(std::string_view id) const;  // kNoRow when it is not listed

    void ColumnWidthChanged(int column, float width) override;
    QString CellText(KTRow row, int column) const override;
    QIcon CellIcon(KTRow row) const override;
    QColor CellColor(uint8_t colorIndex) const override;
    QSize sizeHint() const override;

private:
    Preferences* fPreferences;
};
