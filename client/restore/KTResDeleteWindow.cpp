#include "client/restore/KTResDeleteWindow.h"

#include <QCheckBox>
#include <QLayout>

#include "client/uikit/KTControl.h"
#include "core/protocol/Texts.h"

namespace {

constexpr int kLeastWidth = 420;  // a title and a date are seen whole

}  // namespace

KTResDeleteWindow::KTResDeleteWindow(const QString& title, QWidget* parentWindow,
                                     const BMessage& settings, uint32_t replyCode,
                                     BMessenger target)
    : KTMultiRequest(title, parentWindow, settings, replyCode, target) {
    SetQuestion(KTControl::Text(core::text::kDeleteBackupsQuestion));
    fDeleteData = new QCheckBox(KTControl::LabelText(core::text::kDeleteBackupData));
    KTControl::Name(fDeleteData, "chk_deletedata");
    fDeleteData->setChecked(settings.Get<int32_t>("deletedata", 0) != 0);
    BkgView()->layout()->addWidget(fDeleteData);
    BkgView()->setMinimumWidth(kLeastWidth);
}

void KTResDeleteWindow::Save(BMessage& settings) {
    if (Result()) settings.Set("deletedata", static_cast<int32_t>(fDeleteData->isChecked()));
}
