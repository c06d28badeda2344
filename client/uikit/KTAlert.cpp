#include "client/uikit/KTAlert.h"

#include <QCloseEvent>
#include <QFile>
#include <QFileDialog>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPageSetupDialog>
#include <QPointer>
#include <QPrintDialog>
#include <QPushButton>

#include "client/uikit/KTControl.h"

namespace {

// A message box that can be left without an answer; Qt's refuses to close when no button means
// Escape.
class AlertBox : public QMessageBox {
public:
    explicit AlertBox(QWidget* parent) : QMessageBox(parent) {}
    QAbstractButton* fEscape = nullptr;

protected:
    void keyPressEvent(QKeyEvent* event) override {
        if (event->key() == Qt::Key_Escape) {
            Leave();
            return;
        }
        QMessageBox::keyPressEvent(event);
    }
    void closeEvent(QCloseEvent* event) override {
        event->ignore();
        Leave();
    }

private:
    void Leave() {
        if (fEscape)
            fEscape->click();
        else
            done(-1);
    }
};

QMessageBox::Icon IconOf(KTAlertRequest::Kind kind) {
    switch (kind) {
        case KTAlertRequest::Kind::Warning:
            return QMessageBox::Warning;
        case KTAlertRequest::Kind::Stop:
            return QMessageBox::Critical;
        case KTAlertRequest::Kind::Info:
            break;
    }
    return QMessageBox::Information;
}

class RealDialogs : public KTDialogs {
public:
    int RunAlert(const KTAlertRequest& request) override {
        // The window it belongs to may go while it waits, and takes it along.
        QPointer<AlertBox> box = new AlertBox(request.parent ? request.parent->window() : nullptr);
        box->setObjectName("alert");
        box->setIcon(IconOf(request.kind));
        box->setWindowTitle(request.title);
        box->setTextFormat(Qt::PlainText);
        box->setText(request.text);
        box->setTextInteractionFlags(Qt::TextSelectableByMouse);
        QList<QPushButton*> buttons;
        for (const QString& label : request.buttons) {
            // One role for all keeps them in their order, and lets none become the default by its
            // role.
            QPushButton* button =
                box->addButton(QString(label).replace('&', "&&"), QMessageBox::ActionRole);
            KTControl::Name(button, qPrintable(QString("btn%1").arg(buttons.size())));
            button->setAutoDefault(false);
            buttons.append(button);
        }
        if (request.defaultButton >= 0 && request.defaultButton < buttons.size()) {
            QPushButton* button = buttons[request.defaultButton];
            for (QPushButton* other : buttons)
                other->setAutoDefault(true);
            box->setDefaultButton(button);
            button->setFocus();
        }
        if (request.escapeButton >= 0 && request.escapeButton < buttons.size())
            box->fEscape = buttons[request.escapeButton];
        box->exec();
        if (!box) return -1;
        const auto pressed = buttons.indexOf(box->clickedButton());
        delete box;
        return static_cast<int>(pressed);
    }

    QWidget* OpenPanel(const KTPanelRequest& request,
                       std::function<void(std::optional<std::string>)> done) override {
        auto* panel = new QFileDialog(request.parent ? request.parent->window() : nullptr);
        panel->setObjectName("panel");
        panel->setAttribute(Qt::WA_DeleteOnClose);
        switch (request.kind) {
            case KTPanelRequest::Kind::Open:
                panel->setFileMode(QFileDialog::ExistingFile);
                break;
            case KTPanelRequest::Kind::Save:
                panel->setAcceptMode(QFileDialog::AcceptSave);
                panel->setFileMode(QFileDialog::AnyFile);
                break;
            case KTPanelRequest::Kind::Directory:
                panel->setFileMode(QFileDialog::Directory);
                panel->setOption(QFileDialog::ShowDirsOnly);
                break;
        }
        if (!request.directory.empty())
            panel->setDirectory(QFile::decodeName(request.directory.c_str()));
        if (!request.name.empty()) panel->selectFile(QFile::decodeName(request.name.c_str()));
        QObject::connect(panel, &QDialog::finished, panel,
                         [panel, done = std::move(done)](int result) {
                             const QStringList files = panel->selectedFiles();
                             if (result == QDialog::Accepted && !files.isEmpty())
                                 done(QFile::encodeName(files.first()).toStdString());
                             else
                                 done(std::nullopt);
                         });
        panel->show();
        panel->raise();
        panel->activateWindow();
        return panel;
    }
};

std::unique_ptr<KTDialogs>& Current() {
    static std::unique_ptr<KTDialogs> dialogs = std::make_unique<RealDialogs>();
    return dialogs;
}

}  // namespace

bool KTDialogs::ChoosePrinter(QPrinter* printer, QWidget* parent) {
    // The window it belongs to may go while it waits, and takes it along.
    QPointer<QPrintDialog> dialog = new QPrintDialog(printer, parent ? parent->window() : nullptr);
    dialog->setObjectName("print");
    dialog->setOption(QAbstractPrintDialog::PrintPageRange);
    const bool chosen = dialog->exec() == QDialog::Accepted && dialog;
    delete dialog;
    return chosen;
}

bool KTDialogs::SetUpPage(QPrinter* printer, QWidget* parent) {
    QPointer<QPageSetupDialog> dialog =
        new QPageSetupDialog(printer, parent ? parent->window() : nullptr);
    dialog->setObjectName("pagesetup");
    const bool chosen = dialog->exec() == QDialog::Accepted && dialog;
    delete dialog;
    return chosen;
}

KTDialogs* KTDialogs::Get() {
    return Current().get();
}

std::unique_ptr<KTDialogs> KTDialogs::Replace(std::unique_ptr<KTDialogs> dialogs) {
    return std::exchange(Current(), std::move(dialogs));
}

int KTAlert(QWidget* parent, const QString& title, const QString& text, const QStringList& buttons,
            KTAlertRequest::Kind kind) {
    KTAlertRequest request;
    request.parent = parent;
    request.title = title;
    request.text = text;
    request.buttons = buttons;
    request.kind = kind;
    if (buttons.size() == 1) request.escapeButton = 0;
    return KTDialogs::Get()->RunAlert(request);
}
