// The precompiled header of the client: the Qt classes that nearly every file uses. Files still
// include what they use; nothing of ours is here, so that a change of ours compiles no Qt again.
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
