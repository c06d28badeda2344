// KTSetWindow: the frame of every settings dialog. It edits a copy of a settings message and hands
// it back, however it is closed: `replyCode` with "result" (bool: confirmed) and "settings"
// (message) to the target. With result false the receiver ignores the settings.
//
// Subclasses put their controls on BkgView() and override Save() to write them back. The dialog
// opens at "winpos" from the parent's corner, else centred over it. Not modal; the tool keeps one
// per key.
#pragma once

#include <QDialog>
#include <QPointer>
#include <utility>
#include <vector>

#include "kit/app/BHandler.h"

class QBoxLayout;
class QCheckBox;
class QPushButton;

class KTSetWindow : public QDialog, public BHandler {
    Q_OBJECT
public:
    KTSetWindow(const QString& title, QWidget* parentWindow, const BMessage& settings,
                uint32_t replyCode, BMessenger target);
    ~KTSetWindow() override;

    void GetPref(BMessage* settings) const { *settings = fSettings; }
    void SetPref(const BMessage& settings) { fSettings = settings; }
    bool Result() const { return fResult; }
    QWidget* BkgView() const {
        return fBkgView;
    }  // "bkg_view"; has no layout until a subclass sets one

    // ' ok ' confirms (subclasses may check first and not pass it on); '_QRQ' closes.
    void MessageReceived(BMessage& message) override;

protected:
    // Writes the controls into `settings`; called on every way of closing, before the answer is
    // sent.
    virtual void Save(BMessage& settings) { (void)settings; }
    // A check box with that text for the int32 `key` of the settings, which SaveFlags writes back
    // for all of them. `code`: sent to this window when it is switched, unless 0.
    QCheckBox* AddFlag(QBoxLayout* layout, const char* name, const char* key, int32_t label,
                       bool checked, uint32_t code = 0);
    void SaveFlags(BMessage& settings) const;
    bool IsSet(const char* key) const { return fSettings.Get<int32_t>(key, 0) != 0; }
    // A window of a size of the user's own, at first this one; it is stored with the place.
    void KeepSize(QSize usual) { fUsualSize = usual; }
    // Return in this field does not press the default button (password fields, numbers).
    void KeepReturn(QWidget* field);
    QPushButton* OkButton() const { return fOk; }
    QPushButton* CancelButton() const { return fCancel; }

    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void reject() override;  // Escape
    bool eventFilter(QObject* object, QEvent* event) override;

private:
    QPointer<QWidget> fParentWindow;
    BMessage fSettings;
    uint32_t fReplyCode;
    BMessenger fTarget;
    bool fResult = false;
    bool fAnswered = false;
    bool fPlaced = false;
    QSize fUsualSize;  // invalid: as large as its content needs
    std::vector<std::pair<const char*, QCheckBox*>> fFlags;
    QWidget* fBkgView;
    QPushButton* fOk;
    QPushButton* fCancel;
};
