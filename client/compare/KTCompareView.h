// KTCompareView: the compare tool: the catalogue in which the user marks what to compare with the
// disk, and the controls. Main thread.
#pragma once

#include "client/catalogue/KTCatalogueTool.h"
#include "client/compare/KTCompareJob.h"

class QMenu;
class QPushButton;

class KTCompareView : public KTCatalogueTool {
    Q_OBJECT
public:
    explicit KTCompareView(KTToolContext context, QWidget* parent = nullptr,
                           const char* name = "compare");

    void MessageReceived(BMessage& message) override;

    void HideStart() override;

    KTLogDataView* Catalogue() const { return fCatalogue; }

protected:
    KTJob& OwnJob() override { return fJob; }
    QString AlertTitle() const override;
    void InitControls() override;
    void BeforeSending() override;

private:
    void MakeControls();
    void MakeMenu();
    void OpenSettings(BMessage&);
    void SettingsAnswered(BMessage& message);
    void AskPassword(BMessage&);

    KTCompareJob fJob;
    KTLogDataView* fCatalogue;
    QMenu* fMenu;
    QPushButton* fSettings;
    QPushButton* fPassword;
    QPushButton* fStart;
};
