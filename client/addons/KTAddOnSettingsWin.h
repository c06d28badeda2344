// KTAddOnSettingsWin: an add-on's settings window, drawn from its description
// (addons/KTSettingsHost.h). The values go to the add-on when the window is confirmed; it closes
// only when they were taken.
//
// Controls are named by kind and key: "str_KEY" (path, string), "btn_KEY" (its directory chooser),
// "mnu_KEY" (choice; the proposals of a size), "num_KEY" (integer; the number of a size),
// "unit_KEY", "chk_KEY".
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "addons/KTSettingsHost.h"
#include "client/uikit/KTSetWindow.h"

class QLineEdit;

class KTAddOnSettingsWin : public KTSetWindow {
    Q_OBJECT
public:
    KTAddOnSettingsWin(const BMessage& description, KTSettingsOwner* owner,
                       const BMessenger& target, QWidget* parentWindow);
    ~KTAddOnSettingsWin() override;

    const KTSettingsOwner* Owner() const { return fOwner; }
    // The owner goes: the window closes and asks it nothing more.
    void ForgetOwner();

    void MessageReceived(BMessage& message) override;

private:
    // How a control's value gets into the answer.
    using Collect = std::function<void(BMessage&)>;
    struct Control {
        QWidget* widget = nullptr;  // null: a kind that this program does not know
        Collect collect;
        bool hasLabel = false;
    };
    Control MakeControl(const BMessage& field);
    Control MakePath(const BMessage& field, bool chooser);
    Control MakeChoice(const BMessage& field);
    Control MakeInteger(const BMessage& field);
    Control MakeSize(const BMessage& field);
    Control MakeCheck(const BMessage& field);
    void ChoosePath(QLineEdit* edit, const std::shared_ptr<std::string>& bytes);

    KTSettingsOwner* fOwner;
    BMessenger fSettingsTarget;
    BMessage fValues;
    std::vector<Collect> fCollect;
    QPointer<QWidget> fPanel;
};
