// KTAddOnSettings: the host that add-ons hand the description of their settings window to. It draws
// the window as one of the program's dialogs; one at a time for each owner. Main thread.
#pragma once

#include <QPointer>

#include "addons/KTSettingsHost.h"

class KTAddOnSettingsWin;
class QWidget;

class KTAddOnSettings : public KTSettingsHost {
public:
    explicit KTAddOnSettings(QWidget* parentWindow) : fParentWindow(parentWindow) {}
    ~KTAddOnSettings();  // closes its window

    void OpenSettings(const BMessage& description, KTSettingsOwner* owner,
                      const BMessenger& target) override;
    // To be called before an owner is deleted: its window goes.
    void OwnerGoes(const KTSettingsOwner* owner);

    QWidget* Window() const;  // the open one, or null

private:
    QPointer<QWidget> fParentWindow;
    QPointer<KTAddOnSettingsWin> fWindow;
};
