#include "client/uikit/KTControl.h"

#include <QWidget>
#include <memory>

#include "client/uikit/KTWindowLooper.h"
#include "core/locale/KTLocale.h"
#include "kit/message/BMessenger.h"

namespace {

constexpr bool IsDirectionMark(char32_t c) {
    return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
           (c >= 0x2066 && c <= 0x2069);
}

// What would break a line, move the cursor or turn the text round.
constexpr bool MustBeEscaped(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x2028 || c == 0x2029 || c == 0xFEFF ||
           IsDirectionMark(c);
}

// The length of the well-formed UTF-8 sequence at the start of `bytes` and its code point; 0 when
// there is none.
size_t DecodeOne(std::string_view bytes, char32_t* point) {
    auto byte = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
    const uint8_t first = byte(0);
    if (first < 0x80) {
        *point = first;
        return 1;
    }
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || bytes.size() < length) return 0;
    char32_t value = first & (0x7F >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        value = (value << 6) | (byte(i) & 0x3F);
    }
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kLeast[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return 0;
    *point = value;
    return length;
}

BMessenger TargetOf(const BHandler* target) {
    return BMessenger(target);
}

}  // namespace

namespace KTControl {

QString Text(int32_t id) {
    const char* text = KTLocale::GetInstance()->Text(id);
    return text ? QString::fromUtf8(text) : QString("");
}

QString LabelText(int32_t id) {
    return Text(id).replace('&', "&&");
}

QString Shown(std::string_view bytes) {
    bool plain = true;
    for (const char c : bytes)
        plain = plain && c >= 0x20 && c < 0x7F;
    if (plain) return QString::fromLatin1(bytes.data(), static_cast<qsizetype>(bytes.size()));

    QString shown;
    shown.reserve(static_cast<qsizetype>(bytes.size()));
    while (!bytes.empty()) {
        char32_t point = 0;
        const size_t length = DecodeOne(bytes, &point);
        const size_t taken = length == 0 ? 1 : length;
        if (length > 0 && !MustBeEscaped(point)) {
            shown += QString::fromUcs4(&point, 1);
        } else {
            for (const char c : bytes.substr(0, taken)) {
                constexpr char kDigits[] = "0123456789ABCDEF";
                const auto byte = static_cast<uint8_t>(c);
                shown += QLatin1String("\\x");
                shown += QLatin1Char(kDigits[byte >> 4]);
                shown += QLatin1Char(kDigits[byte & 15]);
            }
        }
        bytes.remove_prefix(taken);
    }
    return shown;
}

std::string ToBytes(const QString& text) {
    return text.toStdString();
}

void Name(QObject* control, const char* objectName, const QString& spoken) {
    control->setObjectName(QString::fromLatin1(objectName));
    if (spoken.isEmpty()) return;
    if (auto* widget = qobject_cast<QWidget*>(control)) widget->setAccessibleName(spoken);
}

void Bind(QAbstractButton* button, const BMessage& message, const BHandler* target) {
    QObject::connect(button, &QAbstractButton::clicked, button,
                     [message, to = TargetOf(target)] { to.SendMessage(message); });
}

void Bind(QAction* action, const BMessage& message, const BHandler* target) {
    QObject::connect(action, &QAction::triggered, action,
                     [message, to = TargetOf(target)] { to.SendMessage(message); });
}

void Bind(QComboBox* menu, uint32_t code, const BHandler* target) {
    QObject::connect(menu, &QComboBox::activated, menu, [code, to = TargetOf(target)](int index) {
        BMessage message(code);
        message.Add("index", static_cast<int32_t>(index));
        to.SendMessage(std::move(message));
    });
}

void Bind(QLineEdit* field, const BMessage& message, const BHandler* target) {
    // A finished edit is said once: Return and then leaving the field are one. A text that the
    // program has put there meanwhile counts as a change, or typing the former one again would be
    // lost.
    struct State {
        QString posted, shown;
        bool typed = false;
    };
    auto state = std::make_shared<State>();
    state->posted = state->shown = field->text();
    QObject::connect(field, &QLineEdit::textEdited, field, [state] { state->typed = true; });
    QObject::connect(field, &QLineEdit::textChanged, field, [state](const QString& text) {
        if (!std::exchange(state->typed, false)) state->shown = text;
    });
    QObject::connect(field, &QLineEdit::editingFinished, field,
                     [state, field, message, to = TargetOf(target)] {
                         const QString text = field->text();
                         if (text == state->posted && text == state->shown) return;
                         state->posted = state->shown = text;
                         BMessage finished(message);
                         finished.Set("text", ToBytes(text));
                         to.SendMessage(std::move(finished));
                     });
}

QAction* MakeAction(QObject* parent, const QString& text, const BMessage& message,
                    const BHandler* target) {
    auto* action = new QAction(text, parent);
    action->setObjectName(QString::fromStdString(CodeText(message.what)));
    Bind(action, message, target);
    return action;
}

}  // namespace KTControl
