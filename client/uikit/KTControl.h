// Small helpers that every window uses: controls that post messages, texts by id, names.
#pragma once

#include <QAbstractButton>
#include <QAction>
#include <QComboBox>
#include <QLineEdit>
#include <QString>

#include "core/locale/MoreTexts.h"
#include "kit/app/BHandler.h"

namespace KTControl {

// The text of an id in the user's language; "" (never null) for an id that no table has. A "&" in
// it is doubled for controls that would take it for a mnemonic.
QString Text(int32_t id);
QString LabelText(int32_t id);
// Bytes from disk or server as text to show: UTF-8, what cannot be decoded is escaped as \xHH,
// control characters and direction marks too. Never rich text.
QString Shown(std::string_view bytes);
// The bytes of a name that the user typed or a panel gave.
std::string ToBytes(const QString& text);

// Gives the control its name, and the words a screen reader says when its own text does not say it.
void Name(QObject* control, const char* objectName, const QString& spoken = {});

// Posts a copy of `message` to `target` (through the window looper) when the control is used:
// pressed, toggled, chosen. Text fields post when the edit is finished, once per text, with "text".
void Bind(QAbstractButton* button, const BMessage& message, const BHandler* target);
void Bind(QAction* action, const BMessage& message, const BHandler* target);
void Bind(QComboBox* menu, uint32_t code, const BHandler* target);  // adds "index" int32
void Bind(QLineEdit* field, const BMessage& message, const BHandler* target);

// An action named by its code ("bavw") that posts it.
QAction* MakeAction(QObject* parent, const QString& text, const BMessage& message,
                    const BHandler* target);

}  // namespace KTControl
