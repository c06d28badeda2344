// The precompiled header of the client: the Qt classes that nearly every file uses. Files still
// include what they use.
#pragma once

#include <QAction>
#include <QApplication>
#include <QBoxLayout>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QObject>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QString>
#include <QTreeView>
#include <QWidget>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/locale/KTLocale.h"
#include "core/protocol/Codes.h"
#include "kit/app/BLooper.h"
#include "kit/message/BMessage.h"
