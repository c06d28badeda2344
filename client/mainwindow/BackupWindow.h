// BackupWindow: the client's main window: menus, tool bar, and a work area that shows one tool at a
// time. Tool views are made when first shown and live as long as the window. It hands the server's
// notices to the views they concern, and settings between the views and the store. Closing it ends
// the client.
#pragma once

#include <QMainWindow>
#include <map>
#include <memory>
#include <span>

#include "client/mainwindow/ToolTable.h"
#include "kit/app/BHandler.h"
#include "kit/message/BMessenger.h"

class KTLanguageMenu;
class KTNotices;
class KTRequestWindow;
class KTStartView;
class KTStatusWindow;
class KTToolBar;
class QActionGroup;
class QStackedWidget;

class BackupWindow : public QMainWindow, public BHandler {
    Q_OBJECT
public:
    BackupWindow(KTToolContext context, const BRect& frame);
    ~BackupWindow() override;

    void MessageReceived(BMessage& message) override;
    // The program runs for its notices: the close box hides the window, only the menu ends it.
    void StayInBackground() { fBackground = true; }

    // The view of a settings group ("backup"), null until the tool was shown.
    KTToolView* View(const char* group) const;
    // Asks a question on behalf of a tool; the answer goes to `target` as `reply` with "which".
    KTRequestWindow* CreateRequest(const QString& title, const QString& text,
                                   const QStringList& buttons, const BMessage& reply,
                                   BMessenger target);

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    struct Command {
        uint32_t code;
        void (BackupWindow::*run)(BMessage& message);
    };
    static std::span<const Command> Commands();

    void BuildFileMenu();
    void BuildToolsMenu();
    void BuildPreferencesMenu();
    void BuildToolBar();
    QAction* AddAction(QMenu* menu, int32_t textId, uint32_t code);
    QMenu* AddMenu(QWidget* parent, int32_t textId, const char* name);
    QAction* ActionOf(uint32_t code) const;
    void SetMenuFlag(uint32_t code, bool set);
    std::vector<std::string> LanguageFolders() const;

    // Tools
    void OpenView();
    void ShowStartView();
    void ShowTool(const client::Tool& tool, const entry_ref* file);
    void SwitchTool(BMessage& message);
    void ToCurrentTool(BMessage& message);
    void ToViews(BMessage& message, std::span<const char* const> groups);
    void JobNotice(BMessage& message);
    void CatalogueNotice(BMessage& message);
    void ScanResult(BMessage& message);
    void ReportNotice(BMessage& message);
    void ShowReport(BMessage& message);
    void ServerNotice(BMessage& message);  // gone, back: every view hears of it
    void JobStarted(BMessage& message);

    // Commands of the menus
    void ShowAbout(BMessage& message);
    void ShowHelp(BMessage& message);
    void ShowStatus(BMessage& message);
    void ToggleLastTool(BMessage& message);
    void ToggleAutoprefs(BMessage& message);
    void SavePrefs(BMessage& message);
    void ChooseLanguage(BMessage& message);
    void DoToolBar(BMessage& message);
    void SetToolBar(uint32_t mode);
    void ServerMissing(BMessage& message);
    void Raise(BMessage& message);
    void Close(BMessage& message);

    void StoreToolSettings();
    void StoreWindowPlaces();
    void StoreAll();

    const KTToolContext fContext;
    std::map<int8_t, KTToolView*> fViews;  // by index; the work area owns them
    KTToolView* fCurrent = nullptr;
    std::unique_ptr<KTStatusWindow> fStatus;  // always there, hidden if need be
    QStackedWidget* fWorkArea;
    KTToolBar* fToolBar;
    QActionGroup* fToolMarks;
    QMenu* fJobMenu = nullptr;
    QMenu* fSelectionMenu = nullptr;
    KTLanguageMenu* fLanguageMenu = nullptr;
    std::unique_ptr<KTNotices> fNotices;
    bool fBackground = false;
    bool fEnded = false;
};
