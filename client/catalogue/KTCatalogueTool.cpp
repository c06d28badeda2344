#include "client/catalogue/KTCatalogueTool.h"

#include "client/app/ClientCodes.h"
#include "client/app/ServerLink.h"
#include "client/catalogue/KTRestoreStartWin.h"
#include "client/catalogue/KTUnlockWindow.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "core/protocol/Texts.h"

namespace {

constexpr char kUnlockKey[] = "win_unlock";
constexpr uint32_t kUnlockAnswer = "rsul"_code;

}  // namespace

KTCatalogueTool::KTCatalogueTool(const char* name, const StartWords& start, KTToolContext context,
                                 QWidget* parent)
    : KTJobTool(name, std::move(context), parent), fStart(start) {}

void KTCatalogueTool::SetCatalogue(KTLogDataView* catalogue) {
    fCatalogue = catalogue;
    connect(fCatalogue, &KTLogDataView::Locked, this, &KTCatalogueTool::Unlock);
}

void KTCatalogueTool::MessageReceived(BMessage& message) {
    using Entry = KTDispatchEntry<KTCatalogueTool>;
    static constexpr Entry kTable[] = {
        {kUnlockAnswer, &KTCatalogueTool::Unlocked},
        {"sall"_code, &KTCatalogueTool::SelectAll},
        {"sclr"_code, &KTCatalogueTool::ClearAll},
        {core::code::kCatalogue, &KTCatalogueTool::ToCatalogue},
        {core::code::kBackupRemoved, &KTCatalogueTool::ToCatalogue},
        {client::code::kServerBack, &KTCatalogueTool::ToCatalogue},
        {client::code::kServerGone, &KTCatalogueTool::ToCatalogue},
    };
    if (message.what == fStart.code) return OpenStart();
    if (message.what == fStart.answer) return StartAnswered(message);
    if (!KTDispatch<KTCatalogueTool>(this, kTable, message)) KTJobTool::MessageReceived(message);
}

void KTCatalogueTool::ToCatalogue(BMessage& message) {
    fCatalogue->MessageReceived(message);
}

// --- the selection ------------------------------------------------------------------------------

void KTCatalogueTool::SaveSelection() {
    BMessage selection;
    fCatalogue->GetSelectionList(&selection);
    OwnJob().SetSelection(selection);
}

void KTCatalogueTool::InitSelection() {
    fCatalogue->MultiSelectAll(false);
    fCatalogue->SetSelection(OwnJob().Selection(), true);
}

void KTCatalogueTool::SelectAll(BMessage&) {
    fCatalogue->MultiSelectAll(true);
    SaveSelection();
}

void KTCatalogueTool::ClearAll(BMessage&) {
    fCatalogue->MultiSelectAll(false);
    SaveSelection();
}

// --- protected backups --------------------------------------------------------------------------

void KTCatalogueTool::Unlock(KTRow backup) {
    if (RaiseIfOpen(kUnlockKey)) return;
    BMessage settings;
    settings.Add("name", fCatalogue->NameOfBackup(backup));
    settings.Add("title", fCatalogue->TitleOf(backup));
    settings.Add("date", KTControl::ToBytes(fCatalogue->DateOf(backup)));
    settings.Add("row", static_cast<int64_t>(backup));
    Present(kUnlockKey,
            new KTUnlockWindow(Context(), window(), settings, kUnlockAnswer, BMessenger(this)));
}

void KTCatalogueTool::Unlocked(BMessage& message) {
    Forget(kUnlockKey);
    if (!message.Get("result", false)) return;
    const BMessage settings = message.Get("settings", BMessage());
    const auto row = static_cast<KTRow>(settings.Get<int64_t>("row", kNoRow));
    // The row may be gone, and its number be another's.
    const auto name = settings.FindString("name");
    if (!fCatalogue->Rows().Has(row) || fCatalogue->NameOfBackup(row) != name) return;
    fCatalogue->Expand(row);
}

// --- starting -----------------------------------------------------------------------------------

bool KTCatalogueTool::CheckStart(bool quiet) {
    const bool chosen = fCatalogue->HasSelection();
    if (!chosen && !quiet) Alert(fStart.nothingMarked);
    return chosen;
}

KTRestoreStartWin* KTCatalogueTool::StartWindow() const {
    return static_cast<KTRestoreStartWin*>(OpenWindow(fStart.key));
}

void KTCatalogueTool::OpenStart() {
    if (!CheckStart()) return;
    if (!RaiseIfOpen(fStart.key)) {
        Present(fStart.key,
                new KTRestoreStartWin(Context(), KTControl::Text(fStart.title), window(),
                                      OwnJob().StartInfo(), fStart.answer, BMessenger(this)));
    }
    StartShown();
}

void KTCatalogueTool::StartAnswered(BMessage& message) {
    Forget(fStart.key);
    if (!message.Get("result", false)) return;
    OwnJob().SetStartInfo(message.Get("settings", BMessage()));
    // The dialog did not hold up the tool behind it: what was marked then may not be so any more.
    if (!CheckStart()) return;
    BeforeSending();
    Context().server->PostApplication(FinishedJob());
}

BMessage KTCatalogueTool::FinishedJob() {
    SaveSelection();
    SaveScheduler();
    InitScheduler();
    return OwnJob().Data();
}
