// KTRestoreSelectionView: the catalogue of the restore tool, with its pop-up menu and what that
// does to the row it was opened on. What concerns the whole tool goes to the tool. Main thread.
#pragma once

#include "client/catalogue/KTLogDataView.h"

class QMenu;

class KTRestoreSelectionView : public KTLogDataView {
    Q_OBJECT
public:
    // `tool` gets 'sall' 'sclr' 'rsIN' 'RSDE' 'rsSE' 'rsST' 'rsDV'.
    KTRestoreSelectionView(ServerLink* server, Preferences* preferences, const BHandler* tool,
                           QWidget* parent);

    // The mark of "Show Pathlist".
    void ShowDiverted(bool diverted);
    // In a window that edits a waiting job: nothing is started or deleted from here.
    void HideStart();
    // What there is to say about a row: "RESINFOSPALTE1" (label), "RESINFOSPALTE2" (value).
    BMessage InfoAbout(KTRow row) const;

    // 'RSRD' redirects "RESREDIRECTSOURCE" (int64 row; without it the current one) to
    // "RESREDIRECTPATH"; 'RSCR', 'RSCA', 'RSGI'.
    void MessageReceived(BMessage& message) override;

private:
    void BuildMenu(const BHandler* tool);
    void MenuOpens();
    void ShowInfo();

    QMenu* fMenu;
    QMenu* fRedirectTo;
    QAction* fClear;
    QAction* fInfo;
    QAction* fDiverted;
    KTRow fMenuRow = kNoRow;  // where the menu was opened
};
