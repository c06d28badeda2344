#include "client/addons/KTAddOnSettingsWin.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <algorithm>
#include <limits>

#include "client/addons/KTSizeField.h"
#include "client/uikit/KTAlert.h"
#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

namespace {

constexpr uint32_t kConfirm = " ok "_code;
constexpr int kFieldWidth = 320;

std::string KeyOf(const BMessage& field) {
    return field.Get("key", std::string());
}

QString LabelOf(const BMessage& field) {
    if (const auto id = field.Find<int32_t>("text_id")) return KTControl::Text(*id);
    return KTControl::Shown(field.Get("label", std::string()));
}

QString TitleOf(const BMessage& description) {
    return KTControl::Shown(description.Get("title", std::string()));
}

// A control with its own line of explanation below it.
QWidget* WithHint(QWidget* control, const std::string& hint) {
    if (hint.empty()) return control;
    auto* both = new QWidget;
    auto* layout = new QVBoxLayout(both);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(control);
    auto* label = new QLabel(KTControl::Shown(hint));
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(label);
    return both;
}

QString Mnemonic(QString text) {
    return text.replace('&', "&&");
}

}  // namespace

KTAddOnSettingsWin::KTAddOnSettingsWin(const BMessage& description, KTSettingsOwner* owner,
                                       const BMessenger& target, QWidget* parentWindow)
    // The frame's own answer goes nowhere: the add-on says itself what changed.
    : KTSetWindow(TitleOf(description), parentWindow, BMessage(), 0, BMessenger()),
      fOwner(owner),
      fSettingsTarget(target),
      fValues(description.Get("values", BMessage())) {
    setObjectName("win_addonsettings");
    auto* form = new QFormLayout(BkgView());
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setRowWrapPolicy(QFormLayout::WrapLongRows);
    for (int32_t i = 0; i < description.Count("field"); ++i) {
        const BMessage field = description.Get("field", BMessage(), i);
        Control control = MakeControl(field);
        if (!control.widget) continue;
        fCollect.push_back(std::move(control.collect));
        auto* caption = new QLabel(control.hasLabel ? QString() : Mnemonic(LabelOf(field)));
        caption->setBuddy(control.widget);
        form->addRow(caption, WithHint(control.widget, field.Get("hint", std::string())));
    }
}

KTAddOnSettingsWin::~KTAddOnSettingsWin() {
    delete fPanel;
}

void KTAddOnSettingsWin::ForgetOwner() {
    fOwner = nullptr;
    close();
}

void KTAddOnSettingsWin::MessageReceived(BMessage& message) {
    if (message.what != kConfirm || !fOwner) {
        KTSetWindow::MessageReceived(message);
        return;
    }
    BMessage values = fValues;
    for (const Collect& collect : fCollect)
        collect(values);
    std::string problem;
    if (fOwner->ApplySettings(values, fSettingsTarget, &problem)) {
        KTSetWindow::MessageReceived(message);
        return;
    }
    KTAlert(this, windowTitle(), KTControl::Shown(problem), {KTControl::Text(core::text::kOk)},
            KTAlertRequest::Kind::Warning);
}

KTAddOnSettingsWin::Control KTAddOnSettingsWin::MakeControl(const BMessage& field) {
    const std::string kind = field.Get("kind", std::string());
    if (kind == "path" || kind == "string") return MakePath(field, kind == "path");
    if (kind == "choice") return MakeChoice(field);
    if (kind == "integer") return MakeInteger(field);
    if (kind == "size") return MakeSize(field);
    if (kind == "check") return MakeCheck(field);
    return {};
}

KTAddOnSettingsWin::Control KTAddOnSettingsWin::MakePath(const BMessage& field, bool chooser) {
    const std::string key = KeyOf(field);
    // A path may hold bytes that no text shows: what was not edited goes back as it came.
    auto bytes = std::make_shared<std::string>(fValues.Get(key, std::string()));
    auto* edit = new QLineEdit(KTControl::Shown(*bytes));
    KTControl::Name(edit, ("str_" + key).c_str(), LabelOf(field));
    edit->setMinimumWidth(kFieldWidth);
    connect(edit, &QLineEdit::textChanged, edit,
            [bytes](const QString& text) { *bytes = KTControl::ToBytes(text); });
    Collect collect = [key, bytes](BMessage& into) { into.Set(key, *bytes); };
    if (!chooser) return {edit, std::move(collect)};

    auto* choose = new QPushButton(KTControl::LabelText(core::kMoreChoose) + "...");
    KTControl::Name(choose, ("btn_" + key).c_str(),
                    KTControl::Text(core::kMoreChoose) + ": " + LabelOf(field));
    choose->setAutoDefault(false);
    connect(choose, &QPushButton::clicked, this, [this, edit, bytes] { ChoosePath(edit, bytes); });
    auto* both = new QWidget;
    auto* row = new QHBoxLayout(both);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(edit, 1);
    row->addWidget(choose);
    both->setFocusProxy(edit);
    return {both, std::move(collect)};
}

void KTAddOnSettingsWin::ChoosePath(QLineEdit* edit, const std::shared_ptr<std::string>& bytes) {
    if (fPanel && fPanel->isVisible()) {
        fPanel->raise();
        fPanel->activateWindow();
        return;
    }
    KTPanelRequest request;
    request.parent = this;
    request.kind = KTPanelRequest::Kind::Directory;
    request.directory = *bytes;
    fPanel = KTDialogs::Get()->OpenPanel(request, [field = QPointer<QLineEdit>(edit),
                                                   bytes](const std::optional<std::string>& path) {
        if (!path || !field) return;
        field->setText(KTControl::Shown(*path));
        *bytes = *path;
    });
}

KTAddOnSettingsWin::Control KTAddOnSettingsWin::MakeChoice(const BMessage& field) {
    const std::string key = KeyOf(field);
    auto* menu = new QComboBox;
    KTControl::Name(menu, ("mnu_" + key).c_str(), LabelOf(field));
    std::vector<int64_t> choices;
    for (int32_t i = 0; i < field.Count("choice"); ++i) {
        menu->addItem(KTControl::Shown(field.Get("choice", std::string(), i)));
        choices.push_back(field.Get<int64_t>("choice_value", i, i));
        if (choices.back() == fValues.Get<int32_t>(key, 0)) menu->setCurrentIndex(i);
    }
    return {menu, [key, menu, choices](BMessage& into) {
                if (menu->currentIndex() < 0) return;
                const int64_t value = choices[static_cast<size_t>(menu->currentIndex())];
                into.Set(key, static_cast<int32_t>(value));
            }};
}

KTAddOnSettingsWin::Control KTAddOnSettingsWin::MakeInteger(const BMessage& field) {
    constexpr int64_t kLeast = std::numeric_limits<int32_t>::min();
    constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
    const std::string key = KeyOf(field);
    auto* number = new QSpinBox;
    KTControl::Name(number, ("num_" + key).c_str(), LabelOf(field));
    number->setRange(static_cast<int>(std::clamp(field.Get("min", kLeast), kLeast, kMost)),
                     static_cast<int>(std::clamp(field.Get("max", kMost), kLeast, kMost)));
    number->setValue(fValues.Get<int32_t>(key, 0));
    return {number, [key, number](BMessage& into) {
                into.Set(key, static_cast<int32_t>(number->value()));
            }};
}

KTAddOnSettingsWin::Control KTAddOnSettingsWin::MakeSize(const BMessage& field) {
    const std::string key = KeyOf(field);
    std::vector<KTSizeField::Proposal> proposals;
    for (int32_t i = 0; i < field.Count("choice"); ++i)
        proposals.emplace_back(KTControl::Shown(field.Get("choice", std::string(), i)),
                               field.Get<int64_t>("choice_value", 0, i));
    auto* size =
        new KTSizeField(key, LabelOf(field), std::move(proposals), fValues.Get<int64_t>(key, 0));
    return {size, [key, size](BMessage& into) { into.Set(key, size->Value()); }};
}

KTAddOnSettingsWin::Control KTAddOnSettingsWin::MakeCheck(const BMessage& field) {
    const std::string key = KeyOf(field);
    auto* box = new QCheckBox(Mnemonic(LabelOf(field)));
    KTControl::Name(box, ("chk_" + key).c_str());
    box->setChecked(fValues.Get<int32_t>(key, 0) != 0);
    return {box,
            [key, box](BMessage& into) { into.Set(key, static_cast<int32_t>(box->isChecked())); },
            true};
}
