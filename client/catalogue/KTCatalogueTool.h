// KTCatalogueTool: a tool whose job reads backups: the user marks in the catalogue what it is about
// and starts it from a dialog. Restore and compare are such tools. Main thread.
//
// Starting goes: the start button checks that something is marked and opens the start dialog; its
// answer brings "start_info"; the tool then sends its job.
#pragma once

#include "client/catalogue/KTLogDataView.h"
#include "client/job/KTJobTool.h"

class KTRestoreStartWin;

class KTCatalogueTool : public KTJobTool {
    Q_OBJECT
public:
    bool CheckStart(bool quiet = false) override;  // something is marked
    BMessage FinishedJob() override;
    void MessageReceived(BMessage& message) override;

protected:
    // How the tool starts its job: the codes of its button and of the dialog's answer, the key that
    // the dialog is remembered under, its title, and what is said when nothing is marked.
    struct StartWords {
        uint32_t code, answer;
        const char* key;
        int32_t title, nothingMarked;
    };
    KTCatalogueTool(const char* name, const StartWords& start, KTToolContext context,
                    QWidget* parent);

    // The tool's own, once it is made; before InitControls.
    void SetCatalogue(KTLogDataView* catalogue);

    KTRestoreStartWin* StartWindow() const;
    virtual void StartShown() {}  // the start dialog was opened, or asked for again
    virtual void BeforeSending() {}
    // Asks for the backup's password; it then opens for what comes next.
    void Unlock(KTRow backup);

    void SaveSelection() override;
    void InitSelection() override;

private:
    void OpenStart();
    void StartAnswered(BMessage& message);
    void SelectAll(BMessage&);
    void ClearAll(BMessage&);
    void Unlocked(BMessage& message);
    void ToCatalogue(BMessage& message);

    const StartWords fStart;
    KTLogDataView* fCatalogue = nullptr;
};
