// What the report tool does with reports: saving, printing, settings, deletion.
#include <QFontDatabase>
#include <QFontInfo>
#include <QPrinter>
#include <QPushButton>
#include <algorithm>

#include "client/app/ServerLink.h"
#include "client/report/KTLogSettingWindow.h"
#include "client/report/KTReportListView.h"
#include "client/report/KTReportPrinter.h"
#include "client/report/KTReportTextView.h"
#include "client/report/KTReportView.h"
#include "client/settings/Preferences.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTElidedLabel.h"
#include "client/uikit/KTFilePanels.h"
#include "client/uikit/KTMultiRequest.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "kit/storage/FileIo.h"

namespace {

constexpr char kGroup[] = "report";
constexpr char kPrinterKey[] = "LOGPRINTER";
constexpr char kSavePathKey[] = "savepath";
constexpr char kDeleteKey[] = "deletereport";
constexpr char kSaveWindow[] = "win_savereport";
constexpr char kSettingsWindow[] = "win_logsettings";
constexpr char kDeleteWindow[] = "win_deletereport";
constexpr char kFileName[] = "KTBackupReport.txt";
constexpr char kFamilyKey[] = "logtextfamily";
constexpr char kStyleKey[] = "logtextstyle";
constexpr char kSizeKey[] = "logtextsize";
constexpr char kFilterKey[] = "logfilter";
constexpr qreal kMargin = 15;                      // mm, unless the page set-up says something else
constexpr int32_t kLeastSize = 4, kMostSize = 96;  // points

void Present(QWidget* window) {
    window->show();
    window->raise();
    window->activateWindow();
}

std::unique_ptr<QPrinter> MakePrinter(const Preferences* preferences) {
    auto printer = std::make_unique<QPrinter>(QPrinter::HighResolution);
    printer->setDocName(QString::fromLatin1(kReportPrintName));
    printer->setPageMargins({kMargin, kMargin, kMargin, kMargin}, QPageLayout::Millimeter);
    KTPageSetup::Apply(preferences->GetMessageData(kPrinterKey), printer.get());
    return printer;
}

}  // namespace

void KTReportView::Alert(int32_t title, const QString& text) {
    KTAlert(this, KTControl::Text(title), text, {KTControl::Text(core::text::kOk)},
            KTAlertRequest::Kind::Warning);
}

// --- saving -------------------------------------------------------------------------------------

void KTReportView::SaveReport(BMessage&) {
    if (fText->Text().IsEmpty())
        return Alert(core::kMoreSaveReport, KTControl::Text(core::text::kNoReportToSave));
    if (RaiseIfOpen(kSaveWindow)) return;
    const KTFilePanels::Place place{{}, fSettings.Get(kSavePathKey, std::string()), kFileName};
    Remember(kSaveWindow, KTFilePanels::OpenSave(this, place, "RPSA"_code, this));
}

void KTReportView::SavePanelAnswered(BMessage& message) {
    Forget(kSaveWindow);
    const auto path = KTFilePanels::SavePath(message);
    if (!path) return;
    fSettings.Set(kSavePathKey, message.Get("directory", entry_ref()).path);
    const QByteArray text = fText->Text().ToUtf8();
    const auto saved = kit::ReplaceFile(
        *path, {reinterpret_cast<const uint8_t*>(text.constData()), size_t(text.size())});
    if (!saved)
        Alert(core::kMoreSaveReport,
              KTControl::Text(core::kMoreReportNotSaved).replace("%s", KTControl::Shown(*path)));
}

void KTReportView::PanelCancelled(BMessage&) {
    Forget(kSaveWindow);
}

// --- printing -----------------------------------------------------------------------------------

void KTReportView::PrintReport(BMessage&) {
    if (fText->Text().IsEmpty())
        return Alert(core::kMorePrintReport, KTControl::Text(core::text::kNoReportToPrint));
    if (fPrinting) return;
    auto printer = MakePrinter(Context().preferences);
    const QPointer<KTReportView> alive(this);
    if (!KTDialogs::Get()->ChoosePrinter(printer.get(), this) || !alive) return;
    if (fPrinting || fText->Text().IsEmpty()) return;  // the report went away meanwhile
    fPrinting = new KTReportPrinter(
        std::move(printer), {fText->Text(), fText->font(), fHeading->text()},
        [this](int page) {
            fState->setText(QString::fromStdString(
                core::FormatTextOf(core::kMorePrintingPage, static_cast<int32_t>(page))));
        },
        [this](bool good) { Printed(good); }, this);
    UpdateButtons();
}

void KTReportView::Printed(bool good) {
    fPrinting = nullptr;
    ShowProblemCount();
    UpdateButtons();
    if (!good) Alert(core::kMorePrintReport, KTControl::Text(core::kMoreReportNotPrinted));
}

void KTReportView::PageSetup(BMessage&) {
    auto printer = MakePrinter(Context().preferences);
    const QPointer<KTReportView> alive(this);
    if (!KTDialogs::Get()->SetUpPage(printer.get(), this) || !alive) return;
    Context().preferences->Set(kPrinterKey, KTPageSetup::ToMessage(printer->pageLayout()));
}

// --- settings -----------------------------------------------------------------------------------

void KTReportView::ApplyFont() {
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    const QString family = QString::fromStdString(fSettings.Get(kFamilyKey, std::string()));
    if (!family.isEmpty())
        font = QFontDatabase::font(family,
                                   QString::fromStdString(fSettings.Get(kStyleKey, std::string())),
                                   std::max(font.pointSize(), 1));
    if (const int32_t size = fSettings.Get<int32_t>(kSizeKey, 0); size > 0)
        font.setPointSize(std::clamp(size, kLeastSize, kMostSize));
    fText->setFont(font);
}

void KTReportView::OpenSettings(BMessage&) {
    if (RaiseIfOpen(kSettingsWindow)) return;
    // The dialog is given what is used now, chosen or not.
    BMessage settings(fSettings);
    const QFontInfo info(fText->font());
    if (!settings.Has(kFamilyKey)) {
        settings.Set(kFamilyKey, KTControl::ToBytes(info.family()));
        settings.Set(kStyleKey, KTControl::ToBytes(QFontDatabase::styleString(info)));
    }
    if (!settings.Has(kSizeKey)) settings.Set(kSizeKey, static_cast<int32_t>(info.pointSize()));
    settings.Set(kFilterKey, Filter());
    auto* window = new KTLogSettingWindow(this->window(), settings, "RWQT"_code, BMessenger(this),
                                          Context().server);
    Remember(kSettingsWindow, window);
    Present(window);
}

void KTReportView::SettingsAnswered(BMessage& message) {
    Forget(kSettingsWindow);
    if (!message.Get("result", false)) return;
    BMessage settings = message.Get("settings", BMessage());
    // What other dialogs have stored meanwhile stays.
    if (const auto path = fSettings.FindString(kSavePathKey)) settings.Set(kSavePathKey, *path);
    if (const auto deletion = fSettings.Find<BMessage>(kDeleteKey))
        settings.Set(kDeleteKey, *deletion);
    const bool otherFilter = settings.Get<int32_t>(kFilterKey, 0) != Filter();
    fSettings = std::move(settings);
    ApplyFont();
    if (otherFilter) ShowText(fText->Text().WithFilter(Filter()));
    Context().preferences->Set(kGroup, fSettings);
}

void KTReportView::FontChosen(BMessage& message) {
    fSettings.Set(kFamilyKey, message.Get("font", std::string()));
    fSettings.Set(kStyleKey, message.Get("style", std::string()));
    ApplyFont();
}

void KTReportView::SizeChosen(BMessage& message) {
    fSettings.Set(kSizeKey, message.Get<int32_t>("size", 0));
    ApplyFont();
}

void KTReportView::FilterChosen(BMessage& message) {
    fSettings.Set(kFilterKey, message.Get<int32_t>("index", 0));
    ShowText(fText->Text().WithFilter(Filter()));
}

// --- deleting -----------------------------------------------------------------------------------

void KTReportView::DeleteReports(BMessage&) {
    if (RaiseIfOpen(kDeleteWindow)) return;
    if (!fList->Rows().HasMarks())
        return Alert(core::kMoreDeleteReport, KTControl::Text(core::text::kNoReportToDelete));
    fToDelete.clear();
    QStringList names;
    for (const KTRow row : fList->Rows().MarkedRows()) {
        fToDelete.push_back(fList->ReportId(row));
        names << fList->Description(row);
    }
    auto* window =
        new KTMultiRequest(KTControl::Text(core::text::kDeleteReports), this->window(),
                           fSettings.Get(kDeleteKey, BMessage()), "drqt"_code, BMessenger(this));
    window->SetQuestion(KTControl::Text(core::text::kDeleteReportsQuestion));
    window->SetText(names.join('\n'));
    Remember(kDeleteWindow, window);
    Present(window);
}

void KTReportView::DeleteAnswered(BMessage& message) {
    Forget(kDeleteWindow);
    const std::vector<int32_t> ids = std::exchange(fToDelete, {});
    if (!message.Get("result", false)) return;
    fSettings.Set(kDeleteKey, message.Get("settings", BMessage()));
    BMessage deletion(core::code::kDeleteReports);
    for (const int32_t id : ids)
        deletion.Add("report_id", id);
    if (!ids.empty()) Context().server->PostServer(std::move(deletion));
}
