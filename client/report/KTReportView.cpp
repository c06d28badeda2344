#include "client/report/KTReportView.h"

#include <QBoxLayout>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QShortcut>
#include <QSplitter>
#include <QTimerEvent>
#include <QToolButton>
#include <algorithm>

#include "client/app/ClientCodes.h"
#include "client/app/ServerLink.h"
#include "client/report/KTReportListView.h"
#include "client/report/KTReportPrinter.h"
#include "client/report/KTReportTextView.h"
#include "client/settings/Preferences.h"
#include "client/uikit/KTControl.h"
#include "client/uikit/KTDispatch.h"
#include "client/uikit/KTElidedLabel.h"
#include "client/uikit/KTKeptPane.h"
#include "core/protocol/Codes.h"
#include "core/protocol/Texts.h"
#include "core/report/Format.h"
#include "kit/app/BLooper.h"
#include "kit/app/SharedArea.h"

namespace {

constexpr uint32_t kSelectionChanged = "slch"_code;
constexpr uint32_t kOpenRow = "RPOR"_code;
constexpr std::chrono::milliseconds kSearchSlice{20};
constexpr char kListHeightKey[] = "RPLHEIGHT";
const QString kDots = QStringLiteral("...");

QString FormattedText(int32_t id, int32_t number) {
    return QString::fromStdString(core::FormatTextOf(id, number));
}

}  // namespace

KTReportView::KTReportView(KTToolContext context, QWidget* parent, const char* name)
    : KTToolView(name, std::move(context), parent) {
    MakeControls();
    MakeMenu();
    MakeKeys();
    ApplyFont();
    ForgetReport(core::kMoreNoReportOpen);
}

KTReportView::~KTReportView() = default;

// --- building -----------------------------------------------------------------------------------

void KTReportView::MakeControls() {
    using namespace core;
    fList = new KTReportListView(Context().server, Context().preferences, this);
    fList->SetSelectionMessage(BMessage(kSelectionChanged), this);
    fList->SetInvocationMessage(BMessage(kOpenRow), this);
    auto* panes = new QSplitter(Qt::Vertical, this);
    panes->setObjectName("panes");
    panes->addWidget(fList);
    panes->addWidget(MakeReportPane());
    panes->setChildrenCollapsible(false);
    panes->setStretchFactor(0, 2);
    panes->setStretchFactor(1, 3);
    Preferences* preferences = Context().preferences;
    new KTKeptPane(panes, 0, preferences->GetFloat(kListHeightKey, 0),
                   [preferences](float height) { preferences->Set(kListHeightKey, height); });

    const auto button = [this](const char* name, const QString& label, uint32_t code) {
        auto* made = new QPushButton(label);
        KTControl::Name(made, name);
        KTControl::Bind(made, BMessage(code), this);
        return made;
    };
    fSave = button("btn_save", KTControl::LabelText(text::kSave) + kDots, "RSAV"_code);
    fPrint = button("btn_print", KTControl::LabelText(text::kPrint), "RPRN"_code);
    fSettingsButton = button("btn_settings", KTControl::LabelText(text::kSettings), "RSET"_code);
    fDelete = button("btn_delete", KTControl::LabelText(text::kDelete), "RCLR"_code);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(fSave);
    bottom->addWidget(fPrint);
    bottom->addStretch(1);
    bottom->addWidget(fSettingsButton);
    bottom->addWidget(fDelete);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(panes, 1);
    layout->addLayout(bottom);
    QWidget* before = fList;
    for (QWidget* next : std::initializer_list<QWidget*>{fPrevious, fNext, fFind, fText, fSave,
                                                         fPrint, fSettingsButton, fDelete})
        setTabOrder(std::exchange(before, next), next);
}

QWidget* KTReportView::MakeReportPane() {
    auto* pane = new QWidget;
    fHeading = new KTElidedLabel;
    fHeading->setObjectName("str_report");
    QFont bold = fHeading->font();
    bold.setBold(true);
    fHeading->setFont(bold);
    const auto arrow = [this](const char* name, Qt::ArrowType type, int32_t text,
                              const QKeySequence& key, bool forward) {
        auto* made = new QToolButton;
        KTControl::Name(made, name, KTControl::Text(text));
        made->setArrowType(type);
        made->setToolTip(QStringLiteral("%1 (%2)").arg(KTControl::Text(text),
                                                       key.toString(QKeySequence::NativeText)));
        made->setFocusPolicy(Qt::StrongFocus);
        connect(made, &QToolButton::clicked, this, [this, forward] { GoToProblem(forward); });
        return made;
    };
    fPrevious = arrow("btn_prevproblem", Qt::UpArrow, core::kMorePreviousProblem,
                      Qt::SHIFT | Qt::Key_F8, false);
    fNext = arrow("btn_nextproblem", Qt::DownArrow, core::kMoreNextProblem, Qt::Key_F8, true);
    fState = new KTElidedLabel;
    fState->setObjectName("str_problems");
    fFind = new QLineEdit;
    KTControl::Name(fFind, "str_find", KTControl::Text(core::kMoreFindInReport));
    fFind->setPlaceholderText(KTControl::Text(core::kMoreFindInReport));
    fFind->setClearButtonEnabled(true);
    fText = new KTReportTextView("txt_report", pane);
    fText->setAccessibleName(KTControl::Text(core::text::kReportText));
    fText->setMinimumHeight(fText->fontMetrics().lineSpacing() * 4);

    auto* row = new QHBoxLayout;
    row->addWidget(fPrevious);
    row->addWidget(fNext);
    row->addWidget(fState, 3);
    row->addWidget(fFind, 2);
    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(fHeading);
    layout->addLayout(row);
    layout->addWidget(fText, 1);
    return pane;
}

void KTReportView::MakeMenu() {
    using namespace core;
    const auto action = [this](QObject* parent, int32_t text, uint32_t code) {
        return KTControl::MakeAction(parent, KTControl::LabelText(text), BMessage(code), this);
    };
    fMenu = new QMenu(fList);
    fMenu->setObjectName("reportpopup");
    fMenu->addAction(action(fMenu, text::kSelectAll, "sall"_code));
    fMenu->addAction(action(fMenu, text::kClearAll, "sclr"_code));
    fMenu->addSeparator();
    QAction* setup = action(fMenu, kMorePageSetup, "RPGS"_code);
    fMenu->addAction(setup);
    fList->SetPopUpMenu(fMenu);
    fText->Menu()->addSeparator();
    fText->Menu()->addAction(setup);
}

void KTReportView::MakeKeys() {
    const auto key = [this](const QKeySequence& keys, auto run) {
        auto* shortcut = new QShortcut(keys, this);
        shortcut->setContext(Qt::WidgetWithChildrenShortcut);
        connect(shortcut, &QShortcut::activated, this, run);
    };
    key(Qt::Key_F8, [this] { GoToProblem(true); });
    key(Qt::SHIFT | Qt::Key_F8, [this] { GoToProblem(false); });
    key(QKeySequence::Find, [this] {
        fFind->setFocus(Qt::ShortcutFocusReason);
        fFind->selectAll();
    });
    key(Qt::Key_F3, [this] { FindWords(true); });
    key(Qt::SHIFT | Qt::Key_F3, [this] { FindWords(false); });
    connect(fFind, &QLineEdit::returnPressed, this, [this] { FindWords(true); });
    auto* remove = new QShortcut(QKeySequence::Delete, fList);
    remove->setContext(Qt::WidgetShortcut);
    connect(remove, &QShortcut::activated, fDelete, &QPushButton::click);
}

// --- settings -----------------------------------------------------------------------------------

void KTReportView::GetPref(BMessage* settings) {
    *settings = fSettings;
}

void KTReportView::SetPref(const BMessage& settings) {
    fSettings = settings;
    ApplyFont();
    ShowText(fText->Text().WithFilter(Filter()));
}

int32_t KTReportView::Filter() const {
    return fSettings.Get<int32_t>("logfilter", KTReportText::kVolumes);
}

// --- messages -----------------------------------------------------------------------------------

void KTReportView::MessageReceived(BMessage& message) {
    using V = KTReportView;
    using Entry = KTDispatchEntry<V>;
    static constexpr Entry kTable[] = {
        {core::code::kReportInserted, &V::ReportsAdded},
        {core::code::kReportRemoved, &V::ReportsRemoved},
        {core::code::kReportText, &V::TextCame},
        {client::code::kShowReport, &V::ShowReport},
        {client::code::kServerGone, &V::ServerGone},
        {client::code::kServerBack, &V::ServerBack},
        {kOpenRow, &V::OpenRow},
        {kSelectionChanged, &V::SelectionChanged},
        {"sall"_code, &V::SelectAllRows},
        {"sclr"_code, &V::ClearAllRows},
        {"RSAV"_code, &V::SaveReport},
        {"RPSA"_code, &V::SavePanelAnswered},
        {B_CANCEL, &V::PanelCancelled},
        {"RPRN"_code, &V::PrintReport},
        {"RPGS"_code, &V::PageSetup},
        {"RSET"_code, &V::OpenSettings},
        {"RWQT"_code, &V::SettingsAnswered},
        {"RFON"_code, &V::FontChosen},
        {"RFSZ"_code, &V::SizeChosen},
        {"RFLT"_code, &V::FilterChosen},
        {"RCLR"_code, &V::DeleteReports},
        {"drqt"_code, &V::DeleteAnswered},
    };
    // The server knows this view's address for one thing only.
    if (message.IsSourceRemote() && message.what != core::code::kReportText) return;
    if (!KTDispatch<V>(this, kTable, message)) KTToolView::MessageReceived(message);
}

// --- the list -----------------------------------------------------------------------------------

void KTReportView::showEvent(QShowEvent* event) {
    KTToolView::showEvent(event);
    FetchList();
}

void KTReportView::changeEvent(QEvent* event) {
    KTToolView::changeEvent(event);
    if (event->type() == QEvent::FontChange) ApplyFont();
}

void KTReportView::FetchList() {
    if (fList->IsFetched()) return;
    fList->GetReportListFromServer();
    SetEmptyText(fEmptyText);
}

void KTReportView::ReportsAdded(BMessage& message) {
    fList->Insert(message);
    SetEmptyText(fEmptyText);
}

void KTReportView::ReportsRemoved(BMessage& message) {
    fList->RemoveReports(message);
    for (int32_t i = 0; i < message.Count("report_id", B_INT32_TYPE); ++i) {
        const int32_t id = message.Get<int32_t>("report_id", 0, i);
        if (id != 0 && (id == fShown || id == fOpened)) ForgetReport(core::kMoreNoReportOpen);
    }
    SetEmptyText(fEmptyText);
    UpdateButtons();
}

void KTReportView::ServerGone(BMessage&) {
    fList->ForgetFetched();
    if (fWaiting) ForgetReport(core::kMoreServerSilent);
}

void KTReportView::ServerBack(BMessage&) {
    fList->ForgetFetched();
    if (isVisible()) FetchList();
}

void KTReportView::SelectAllRows(BMessage&) {
    fList->MultiSelectAll(true);
}

void KTReportView::ClearAllRows(BMessage&) {
    fList->MultiSelectAll(false);
}

void KTReportView::SelectionChanged(BMessage&) {
    UpdateButtons();
}

// --- the open report ----------------------------------------------------------------------------

void KTReportView::OpenRow(BMessage& message) {
    const auto row = static_cast<KTRow>(message.Get<int64_t>("item", kNoRow));
    if (!fList->Rows().Has(row)) return;
    if (!fList->Rows().IsMarked(row)) fList->MultiSelect(row);
    OpenReport(fList->ReportId(row));
}

void KTReportView::ShowReport(BMessage& message) {
    const int32_t id = message.Get<int32_t>("report_id", 0);
    FetchList();
    // It may be newer than the list.
    if (fList->RowOfReport(id) == kNoRow) fList->GetReportListFromServer();
    const KTRow row = fList->RowOfReport(id);
    if (row == kNoRow)
        return ForgetReport(fList->IsFetched() ? core::kMoreReportGone : core::kMoreServerSilent);
    fList->MultiSelectAll(false);
    fList->MultiSelect(row);
    fList->SetCurrentRow(row);
    fList->ScrollTo(row);
    OpenReport(id);
}

void KTReportView::ToServer(uint32_t code, int32_t reportId) {
    BMessage message(code);
    message.Add("report_id", reportId);
    message.Add("user", BMessenger(this));
    Context().server->PostApplication(std::move(message));
}

void KTReportView::OpenReport(int32_t id) {
    if (fOpened != 0) ToServer(core::code::kCloseReport, fOpened);
    ToServer(core::code::kOpenReport, id);
    fOpened = id;
    fWaiting = true;
    fState->setText(KTControl::Text(core::kMoreReportFetching));
    if (fShown == 0) SetEmptyText(core::kMoreReportFetching);
}

void KTReportView::TextCame(BMessage& message) {
    BMessage text(message);
    bool whole = true;
    if (const auto area = message.Find<int32_t>("area_id")) {
        auto read = kit::SharedArea::Read(message.SourceTeam(), *area);
        whole = static_cast<bool>(read);
        if (whole) text = std::move(*read);
        message.SendReply(core::code::kAreaRead);
    }
    const int32_t id = message.Get<int32_t>("report_id", text.Get<int32_t>("report_id", 0));
    // The user has opened another one meanwhile.
    if (fWaiting && id != fOpened) return;
    fWaiting = false;
    fOpened = id;
    if (!whole) return ForgetReport(core::kMoreReportUnread);
    fShown = id;
    SetEmptyText(core::kMoreReportEmpty);
    UpdateHeading();
    ShowText(KTReportText(std::move(text), Filter()));
}

void KTReportView::ShowText(KTReportText text) {
    fSearching.stop();
    fSearch.reset();
    fText->SetText(std::move(text));
    ShowProblemCount();
    UpdateButtons();
}

void KTReportView::ForgetReport(int32_t emptyText) {
    fShown = fOpened = 0;
    fWaiting = false;
    SetEmptyText(emptyText);
    UpdateHeading();
    ShowText({});
}

void KTReportView::SetEmptyText(int32_t text) {
    fEmptyText = text;
    // Where there is nothing to open, the list says so.
    const bool isVain = text == core::kMoreNoReportOpen && fList->Rows().Count() == 0;
    fText->SetEmptyText(isVain ? QString() : KTControl::Text(text));
}

void KTReportView::UpdateHeading() {
    const KTRow row = fShown == 0 ? kNoRow : fList->RowOfReport(fShown);
    fHeading->setText(row == kNoRow ? QString() : fList->Description(row));
    fHeading->setVisible(!fHeading->text().isEmpty());
}

void KTReportView::UpdateButtons() {
    const bool hasText = !fText->Text().IsEmpty();
    fSave->setEnabled(hasText);
    fPrint->setEnabled(hasText && !fPrinting);
    fDelete->setEnabled(fList->Rows().HasMarks());
    fFind->setEnabled(hasText);
    fPrevious->setEnabled(!fText->Text().Problems().empty());
    fNext->setEnabled(fPrevious->isEnabled());
}

void KTReportView::ShowProblemCount() {
    if (fShown == 0) return fState->clear();
    const KTReportText& text = fText->Text();
    const auto problems = static_cast<int32_t>(text.Problems().size());
    QStringList state = {problems == 0 ? KTControl::Text(core::kMoreNoProblems)
                                       : FormattedText(core::kMoreProblems, problems)};
    if (text.CountHidden() > 0) state << FormattedText(core::kMoreLinesHidden, text.CountHidden());
    fState->setText(state.join(QStringLiteral("   ")));
}

void KTReportView::GoToProblem(bool forward) {
    const std::vector<int>& problems = fText->Text().Problems();
    if (problems.empty()) return;
    const int line = fText->Caret().line;
    // The one that the caret is in counts as seen when it is selected.
    auto next = fText->HasSelection() ? std::ranges::upper_bound(problems, line)
                                      : std::ranges::lower_bound(problems, line);
    if (forward) {
        if (next == problems.end()) next = problems.begin();
    } else {
        next = std::ranges::lower_bound(problems, line);
        if (next == problems.begin()) next = problems.end();
        --next;
    }
    fText->SelectLine(*next);
    fState->setText(QString::fromStdString(
        core::FormatTextOf(core::kMoreProblemOf, static_cast<int32_t>(next - problems.begin() + 1),
                           static_cast<int32_t>(problems.size()))));
}

void KTReportView::FindWords(bool forward) {
    const QString words = fFind->text();
    if (words.isEmpty()) return;
    KTTextPlace from = fText->SelectionBegin();
    if (forward && fText->HasSelection()) ++from.column;
    fSearch.emplace(fText->Text(), words, from, forward);
    SearchOn();
}

void KTReportView::SearchOn() {
    if (!fSearch->Run(kSearchSlice)) {
        if (fSearching.isActive()) return;
        fState->setText(KTControl::Text(core::kMoreSearching));
        return fSearching.start(0, this);
    }
    fSearching.stop();
    const KTReportSearch search = std::move(*fSearch);
    fSearch.reset();
    const auto& found = search.Found();
    if (!found) return fState->setText(KTControl::Text(core::kMoreNotFound));
    ShowProblemCount();
    fText->Select(*found, {found->line, found->column + static_cast<int>(search.Length())});
}

void KTReportView::timerEvent(QTimerEvent* event) {
    if (event->timerId() != fSearching.timerId()) return KTToolView::timerEvent(event);
    SearchOn();
}
