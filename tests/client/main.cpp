// The client's tests run real widgets: one application object, one window looper, the built-in
// texts.
#include <gtest/gtest.h>

#include <QApplication>

#include "client/uikit/KTWindowLooper.h"
#include "core/locale/KTLocale.h"
#include "core/locale/MoreTexts.h"
#include "core/locale/TextTable.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    KTLocale::GetInstance()->SetDefaultText(core::kTextTable.data(), core::kTextCount, "English");
    KTLocale::GetInstance()->SetMoreText(core::kMoreTextTable.data(), core::kMoreTextCount);
    KTWindowLooper looper;
    return RUN_ALL_TESTS();
}
