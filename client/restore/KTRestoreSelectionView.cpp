#include "client/restore/KTRestoreSelectionView.h"

#include <QMenu>

#include "client/restore/KTRestoreGetInfoWindow.h"
#include "client/restore/KTRestorePopUpMenu.h"
#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"

namespace {

constexpr char kRow[] = "RESREDIRECTSOURCE";
constexpr char kPath[] = "RESREDIRECTPATH";
constexpr char kDestinationOfBackup[] = "- kommt noch -";

}  // namespace

KTRestoreSelectionView::KTRestoreSelectionView(ServerLink* server, Preferences* preferences,
                                               const BHandler* tool, QWidget* parent)
    : KTLogDataView(server, preferences, parent) {
    BuildMenu(tool);
}

void KTRestoreSelectionView::BuildMenu(const BHandler* tool) {
    using namespace core::text;
    fMenu = new QMenu(this);
    fMenu->setObjectName("RestorePopUp");
    const auto add = [this](const QString& text, uint32_t code, const BHandler* target) {
        QAction* action = KTControl::MakeAction(fMenu, text, BMessage(code), target);
        fMenu->addAction(action);
        return action;
    };
    add(KTControl::LabelText(kSelectAll), "sall"_code, tool);
    add(KTControl::LabelText(kClearAll), "sclr"_code, tool);
    fMenu->addSeparator();
    fRedirectTo =
        new KTRestorePopUpMenu(KTControl::LabelText(kRedirectTo), "/", BMessenger(this), fMenu);
    fRedirectTo->setObjectName("mnu_redirectto");
    fRedirectTo->setIcon({});
    fMenu->addMenu(fRedirectTo);
    fClear = add(KTControl::LabelText(kClearRedirection), "RSCR"_code, this);
    add(KTControl::LabelText(kClearAllRedirections), "RSCA"_code, this);
    fInfo = add(KTControl::LabelText(kGetInfo), "RSGI"_code, this);
    fMenu->addSeparator();
    add(KTControl::LabelText(kInsert) + "...", "rsIN"_code, tool);
    add("Delete", "RSDE"_code, tool);
    add(KTControl::LabelText(kSettings), "rsSE"_code, tool);
    add(KTControl::LabelText(kStartRestore), "rsST"_code, tool);
    fMenu->addSeparator();
    fDiverted = new QAction(KTControl::LabelText(kShowPathlist), fMenu);
    fDiverted->setObjectName("rsDV");
    fDiverted->setCheckable(true);
    connect(fDiverted, &QAction::triggered, this, [to = BMessenger(tool)](bool checked) {
        BMessage message("rsDV"_code);
        message.Add("divert", static_cast<int32_t>(checked));
        to.SendMessage(std::move(message));
    });
    fMenu->addAction(fDiverted);
    connect(fMenu, &QMenu::aboutToShow, this, &KTRestoreSelectionView::MenuOpens);
    SetPopUpMenu(fMenu);
}

void KTRestoreSelectionView::MenuOpens() {
    fMenuRow = CurrentRow();
    const bool row = fMenuRow != kNoRow;
    // Only what is marked is restored, so only that can go elsewhere.
    fRedirectTo->setEnabled(row && Rows().IsMarked(fMenuRow));
    fClear->setEnabled(row);
    fInfo->setEnabled(row);
}

void KTRestoreSelectionView::ShowDiverted(bool diverted) {
    fDiverted->setChecked(diverted);
}

void KTRestoreSelectionView::HideStart() {
    for (const char* name : {"rsST", "RSDE", "rsIN"})
        if (auto* action = fMenu->findChild<QAction*>(name)) action->setVisible(false);
}

void KTRestoreSelectionView::MessageReceived(BMessage& message) {
    const KTRow menuRow = Rows().Has(fMenuRow) ? fMenuRow : CurrentRow();
    switch (message.what) {
        case "RSRD"_code: {
            const auto row = static_cast<KTRow>(message.Get<int64_t>(kRow, CurrentRow()));
            return AddRedirection(row, message.FindString(kPath).value_or(""));
        }
        case "RSCR"_code:
            return ClearRedirection(menuRow);
        case "RSCA"_code:
            return ClearAllRedirections();
        case "RSGI"_code:
            return ShowInfo();
        default:
            KTLogDataView::MessageReceived(message);
    }
}

BMessage KTRestoreSelectionView::InfoAbout(KTRow row) const {
    namespace text = core::text;
    BMessage info("RSID"_code);
    const auto add = [&info](int32_t label, const std::string& value) {
        info.Add("RESINFOSPALTE1", KTControl::ToBytes(KTControl::Text(label)));
        info.Add("RESINFOSPALTE2", value);
    };
    const auto kindOf = [](Target target) {
        switch (target) {
            case Target::File:
                return text::kFile;
            case Target::Directory:
                return text::kDirectory;
            case Target::Link:
                return text::kSymbolicLink;
            case Target::Volume:
                return text::kVolume;
            default:
                return text::kBackup;
        }
    };
    const Target target = TargetOf(row);
    const KTRow backup = BackupOf(row);
    // "/Backup/Volume/path"
    const std::string path = PathOf(row);
    const size_t volume = std::min(path.find('/', 1), path.size());
    const size_t inside = std::min(path.find('/', volume + 1), path.size());
    const bool named = target >= Target::File;
    add(text::kName, named ? std::string(Rows().TextAt(row, KTLogDataView::kFile))
                           : KTControl::ToBytes(NameOf(row)));
    const int64_t size = Rows().NumberAt(row, KTLogDataView::kSize);
    add(text::kSize, size < 0 || target == Target::Set ? "" : std::to_string(size));
    add(text::kDate, KTControl::ToBytes(DateOf(row)));
    add(text::kDestination, kDestinationOfBackup);
    add(text::kKind, KTControl::ToBytes(KTControl::Text(kindOf(target))));
    add(text::kVolume, volume < path.size() ? path.substr(volume + 1, inside - volume - 1) : "");
    add(text::kPath, inside < path.size() ? path.substr(inside) : "");
    add(text::kRedirect, KTControl::ToBytes(CellText(row, KTLogDataView::kRedirect)));
    add(text::kBackup, backup == kNoRow ? "" : NameOfBackup(backup));
    add(text::kDate, backup == kNoRow ? "" : KTControl::ToBytes(DateOf(backup)));
    return info;
}

void KTRestoreSelectionView::ShowInfo() {
    const KTRow row = Rows().Has(fMenuRow) ? fMenuRow : CurrentRow();
    if (row == kNoRow) return;
    auto* shown = new KTRestoreGetInfoWindow(InfoAbout(row), window());
    shown->show();
}
