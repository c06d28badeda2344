#include "client/restore/KTResSettingWindow.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>

#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kDivertSwitched = "rsDV"_code;

}  // namespace

KTResSettingWindow::KTResSettingWindow(const QString& title, QWidget* parentWindow,
                                       const BMessage& settings, uint32_t replyCode,
                                       BMessenger target)
    : KTSetWindow(title, parentWindow, settings, replyCode, target),
      fTool(target),
      fDivertBefore(settings.Get<int32_t>("divert", 0)) {
    using namespace core::text;
    fOverwrite = new QComboBox;
    KTControl::Name(fOverwrite, "mnu_overwrite");
    for (const int32_t item : {kNo, kOnlyOlder, kRename, kYes})
        fOverwrite->addItem(KTControl::Text(item));
    fOverwrite->setCurrentIndex(settings.Get<int32_t>("overwrite", 0));
    KTControl::Bind(fOverwrite, "rsOV"_code, this);
    auto* label = new QLabel(KTControl::LabelText(kOverwriteFiles) + ":");
    label->setBuddy(fOverwrite);
    auto* row = new QHBoxLayout;
    row->addWidget(label);
    row->addWidget(fOverwrite);
    row->addStretch(1);

    auto* layout = new QVBoxLayout(BkgView());
    layout->addLayout(row);
    const auto flag = [&](const char* name, const char* key, int32_t text, uint32_t code) {
        return AddFlag(layout, name, key, text, IsSet(key), code);
    };
    flag("chk_askoverwrite", "askoverwrite", kAsk, "rsAO"_code);
    flag("chk_createroot", "createroot", kCreateRootDirectory, "rsCR"_code);
    flag("chk_emptydirs", "createemptydirs", kCreateEmptyDirectories, "rsED"_code);
    fDivert = flag("chk_divert", "divert", kShowPathlist, kDivertSwitched);
    layout->addStretch(1);
}

void KTResSettingWindow::MessageReceived(BMessage& message) {
    if (message.what == kDivertSwitched)
        TellDivert(static_cast<int32_t>(fDivert->isChecked()));
    else
        KTSetWindow::MessageReceived(message);
}

void KTResSettingWindow::Save(BMessage& settings) {
    if (!Result()) return;
    // An index that no item has marks none, and stays as it was.
    if (fOverwrite->currentIndex() >= 0)
        settings.Set("overwrite", static_cast<int32_t>(fOverwrite->currentIndex()));
    SaveFlags(settings);
}

void KTResSettingWindow::closeEvent(QCloseEvent* event) {
    // The tool is back where it was by the time it hears that the dialog is gone.
    if (!std::exchange(fClosed, true) && !Result()) TellDivert(fDivertBefore);
    KTSetWindow::closeEvent(event);
}

void KTResSettingWindow::TellDivert(int32_t divert) {
    BMessage message(kDivertSwitched);
    message.Add("divert", divert);
    fTool.SendMessage(std::move(message));
}
