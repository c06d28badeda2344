#include "client/addons/KTAddOnSettings.h"

#include "client/addons/KTAddOnSettingsWin.h"

KTAddOnSettings::~KTAddOnSettings() {
    delete fWindow;
}

void KTAddOnSettings::OpenSettings(const BMessage& description, KTSettingsOwner* owner,
                                   const BMessenger& target) {
    if (fWindow && (fWindow->Owner() != owner || fWindow->isHidden())) delete fWindow;
    if (!fWindow) fWindow = new KTAddOnSettingsWin(description, owner, target, fParentWindow);
    fWindow->show();
    fWindow->raise();
    fWindow->activateWindow();
}

void KTAddOnSettings::OwnerGoes(const KTSettingsOwner* owner) {
    if (fWindow && fWindow->Owner() == owner) fWindow->ForgetOwner();
}

QWidget* KTAddOnSettings::Window() const {
    return fWindow && fWindow->isVisible() ? fWindow : nullptr;
}
