// Alerts, file panels and the dialogs of the printer go through one seam, so that a test can answer
// them.
#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>
#include <string>

class QPrinter;
class QWidget;

struct KTAlertRequest {
    enum class Kind { Info, Warning, Stop };
    QWidget* parent = nullptr;
    QString title, text;  // plain text
    QStringList buttons;  // one to three; their object names are "btn0", "btn1", "btn2"
    Kind kind = Kind::Info;
    int defaultButton = 0;  // never one that destroys; -1: none
    int escapeButton = -1;  // what Escape and the close box mean; -1 is reported as -1
};

struct KTPanelRequest {
    enum class Kind { Open, Save, Directory };
    QWidget* parent = nullptr;
    Kind kind = Kind::Open;
    std::string directory, name;  // bytes; where it opens, the proposed name
};

class KTDialogs {
public:
    virtual ~KTDialogs() = default;
    // Shows it and waits, with painting and messages going on; the pressed button's index or -1.
    virtual int RunAlert(const KTAlertRequest& request) = 0;
    // Opens a panel that does not block. `done` gets the path, or nothing when it was cancelled; it
    // is not called when the panel is deleted (with its parent, or by its owner). The widget is the
    // caller's to raise or close; it deletes itself when closed.
    virtual QWidget* OpenPanel(const KTPanelRequest& request,
                               std::function<void(std::optional<std::string> path)> done) = 0;
    // Where and what to print, and the paper: the choice is made in `printer`. They wait as alerts
    // do; false when cancelled.
    virtual bool ChoosePrinter(QPrinter* printer, QWidget* parent);
    virtual bool SetUpPage(QPrinter* printer, QWidget* parent);

    static KTDialogs* Get();  // the real ones, or what a test has put in
    static std::unique_ptr<KTDialogs> Replace(std::unique_ptr<KTDialogs> dialogs);
};

// The usual alert: one button, text by id. Returns the pressed button.
int KTAlert(QWidget* parent, const QString& title, const QString& text, const QStringList& buttons,
            KTAlertRequest::Kind kind = KTAlertRequest::Kind::Info);
