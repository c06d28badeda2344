// KTStatusWindow: one panel for each running job. It lives as long as the main window, hidden or
// shown. Main thread.
//
// The main window hands it 'KTJS' (as it came: a panel answers it) and 'svgo', shows it, and takes
// its settings (GetPref) when the program ends.
#pragma once

#include <QPointer>
#include <QWidget>

#include "kit/app/BHandler.h"

class KTSpecialListView;
class KTStatusView;
class Preferences;
class QLabel;
class QMenu;
class ServerLink;

class KTStatusWindow : public QWidget, public BHandler {
    Q_OBJECT
public:
    // All outlive it. Settings are the group "status" of the preferences.
    KTStatusWindow(ServerLink* server, Preferences* preferences, QWidget* mainWindow);
    ~KTStatusWindow() override;

    // The settings as they are now, with "statuswinpos": the frame, its corner counted from the
    // main window's.
    void GetPref(BMessage* settings) const;
    void SetPref(const BMessage& settings);
    bool OpensByItself() const { return fSettings.Get<int32_t>("autoopen", 0) != 0; }

    int CountRunning() const;  // panels whose jobs have not ended

    KTSpecialListView* List() const { return fList; }

    // 'KTJS' 'svrm' 'svgo', and the settings dialog's.
    void MessageReceived(BMessage& message) override;

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* object, QEvent* event) override;  // the main window moves

private:
    void JobStarted(BMessage& message);
    void RemovePanel(BMessage& message);
    void ServerGone(BMessage&);
    void OpenSettings(BMessage&);
    void SettingsAnswered(BMessage& message);
    void Store();
    void ApplyTo(KTStatusView* panel) const;
    KTStatusView* PanelAt(int index) const;
    KTStatusView* PanelNamed(const std::string& name) const;
    void ShowEmpty();

    ServerLink* fServer;
    Preferences* fPreferences;
    QWidget* fMainWindow;
    BMessage fSettings;
    KTSpecialListView* fList;
    QLabel* fEmpty;
    QMenu* fPopUp;
    QPointer<QWidget> fSettingsWindow;
    QPoint fMainPosition;
    bool fPlaced = false;
};
