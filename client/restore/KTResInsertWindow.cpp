#include "client/restore/KTResInsertWindow.h"

#include <QBoxLayout>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>

#include "client/app/ClientCodes.h"
#include "client/app/ServerLink.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Codes.h"
#include "core/report/Format.h"

namespace {

constexpr uint32_t kDestinationChosen = "news"_code;
constexpr uint32_t kDestinationSettings = "dset"_code;
constexpr uint32_t kMarksChanged = "slch"_code;

constexpr KTJob::FileKind kNoFiles = {};

// Scans that no job gives a number to. Numbers of jobs are positive.
int32_t NextScan() {
    static int32_t last = 0;
    return --last;
}

QLabel* MakeLabel(const char* name, const QString& text = {}) {
    auto* label = new QLabel(text);
    KTControl::Name(label, name);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    return label;
}

}  // namespace

KTResInsertWindow::KTResInsertWindow(const KTToolContext& context, const QString& title,
                                     QWidget* parentWindow, const BMessage& settings,
                                     uint32_t replyCode, BMessenger target, Use use)
    : KTSetWindow(title, parentWindow, settings, replyCode, target),
      fServer(context.server),
      fUse(use),
      fJob(kNoFiles),
      fScan(settings.Get<int32_t>("job_id", 0)) {
    fJob.Replace(settings);
    if (fUse == Use::WaitingJob) {
        const int32_t ids = settings.Count("ID", B_STRING_TYPE);
        const int32_t earlier = settings.Count("title", B_STRING_TYPE) - ids;
        for (int32_t i = 0; i < ids; ++i)
            fUnlisted.push_back({settings.Get("ID", std::string(), i),
                                 settings.Get("title", std::string(), earlier + i)});
    }

    auto* grid = new QGridLayout;
    fDestination =
        std::make_unique<KTDestination>(&fJob, context.programFolder, this, this, grid, 0);
    fList = new KTFoundBackups(context.preferences, nullptr);
    fList->SetSelectionMessage(BMessage(kMarksChanged), this);
    fCount = MakeLabel("str_found");
    auto* again = new QPushButton(KTControl::LabelText(core::kMoreLookAgain));
    KTControl::Name(again, "btn_scan");
    KTControl::Bind(again, BMessage(kDestinationChosen), this);

    auto* below = new QHBoxLayout;
    below->addWidget(fCount, 1);
    below->addWidget(again);
    auto* layout = new QVBoxLayout(BkgView());
    layout->addWidget(MakeLabel("str_hint", KTControl::Text(core::kMoreInsertHint)));
    layout->addLayout(grid);
    layout->addWidget(fList, 1);
    layout->addLayout(below);

    fDestination->InitDestination();
    SetState(State::NoPlace);
    if (fDestination->HasMedium()) ScanDestination();
    fDestination->DestinationMenu()->setFocus();
}

KTResInsertWindow::~KTResInsertWindow() = default;

void KTResInsertWindow::MessageReceived(BMessage& message) {
    switch (message.what) {
        case kDestinationChosen:
            DestinationChosen();
            break;
        case kDestinationSettings:
            fDestination->ShowDestinationSettings();
            break;
        case core::code::kScanResult:
            SetScanResult(message);
            break;
        case kMarksChanged:
            ShowCount();
            break;
        case client::code::kServerGone:
            if (fState == State::Scanning) SetState(State::NoServer);
            break;
        case client::code::kServerBack:
            if (fState == State::NoServer) ScanDestination();
            break;
        default:
            KTSetWindow::MessageReceived(message);
    }
}

// --- scanning -----------------------------------------------------------------------------------

void KTResInsertWindow::DestinationChosen() {
    fDestination->SaveDestination();
    fDestination->InitDestination();
    ScanDestination();
    if (!isActiveWindow()) activateWindow();
}

void KTResInsertWindow::ScanDestination() {
    const KTVolume* volume = fDestination->Destination();
    const std::string place = fJob.Destination() + "\n" + (volume ? volume->MediaName() : "");
    if (fScanned.empty() || place == fScanned) {
        // Looked at again it keeps its marks.
        for (KTFoundBackups::Backup& backup : fList->Marked())
            fUnlisted.push_back(std::move(backup));
    } else {
        fUnlisted.clear();
    }
    fList->Rows().MakeEmpty();

    // The first scan is called by the number of the job, as the settings have it; each one after it
    // gets its own, so that an answer tells which scan it belongs to.
    if (fScan == 0 || !fScanned.empty()) fScan = NextScan();
    fScanned = place;
    BMessage scan(core::code::kScanMedium);
    scan.Add("id", fScan);
    scan.Add("name", fJob.Destination());
    scan.Add("settings", fJob.TakeVolume());
    SetState(fServer->PostServer(std::move(scan)) ? State::Scanning : State::NoServer);
}

void KTResInsertWindow::SetScanResult(const BMessage& answer) {
    // Overtaken by another scan, or meant for another window.
    if (answer.Get("id", fScan) != fScan) return;
    fList->SetScanResult(answer);
    std::erase_if(fUnlisted, [this](const KTFoundBackups::Backup& backup) {
        const KTRow row = fList->RowOfId(backup.id);
        if (row != kNoRow) fList->MultiSelect(row);
        return row != kNoRow || fUse == Use::NewChoice;
    });
    SetState(State::Scanned);
}

// --- what is shown ------------------------------------------------------------------------------

void KTResInsertWindow::SetState(State state) {
    fState = state;
    int32_t empty = core::kMoreInsertNothingFound;
    if (state == State::Scanning)
        empty = core::kMoreInsertScanning;
    else if (state == State::NoServer)
        empty = core::kMoreServerSilent;
    else if (!fDestination->HasMedium())
        empty = core::kMoreInsertNoPlace;
    fList->SetEmptyText(KTControl::Text(empty));
    state == State::Scanning ? setCursor(Qt::BusyCursor) : unsetCursor();
    ShowCount();
}

void KTResInsertWindow::ShowCount() {
    const auto marked = static_cast<int32_t>(fList->Marked().size() + fUnlisted.size());
    const int32_t found = fList->Rows().Count();
    std::string words;
    if (found > 0) words = core::FormatTextOf(core::kMoreInsertCount, found, marked);
    if (fState == State::Scanned && !fUnlisted.empty()) {
        if (!words.empty()) words += "\n";
        words +=
            core::FormatTextOf(core::kMoreInsertNotThere, static_cast<int32_t>(fUnlisted.size()));
    }
    fCount->setText(QString::fromStdString(words));
}

void KTResInsertWindow::Save(BMessage& settings) {
    const auto place = settings.Find<BRect>("winpos");
    settings = fJob.Data();
    if (place) settings.Set("winpos", *place);
    settings.Remove("ID");
    if (fUse == Use::WaitingJob) settings.Remove("title");
    std::vector<KTFoundBackups::Backup> chosen = fUnlisted;
    for (KTFoundBackups::Backup& backup : fList->Marked())
        chosen.push_back(std::move(backup));
    for (const KTFoundBackups::Backup& backup : chosen) {
        settings.Add("ID", backup.id);
        if (fUse == Use::NewChoice) settings.Add("title", backup.title);
    }
}
