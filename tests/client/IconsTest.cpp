#include <gtest/gtest.h>

#include <QImage>

#include "client/uikit/KTIcons.h"

namespace {

// Part of the area that is drawn on.
double Covered(const QPixmap& picture) {
    const QImage image = picture.toImage().convertToFormat(QImage::Format_ARGB32);
    int covered = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x)
            covered += qAlpha(image.pixel(x, y)) > 60;
    }
    return covered / (1.0 * image.width() * image.height());
}

TEST(Icons, EveryOneIsThereAtEverySize) {
    for (const char* name : {"quickbackup", "backup", "restore", "compare", "jobqueue", "reports",
                             "status", "volume", "folder", "file", "link", "tower", "backup-full",
                             "backup-incremental", "backup-differential", "velmora-backup"}) {
        for (const int size : {16, 24, 32, 48}) {
            const QPixmap picture = KTIcons::Get(name).pixmap(size, size);
            ASSERT_EQ(picture.size(), QSize(size, size)) << name;
            EXPECT_GT(Covered(picture), 0.3) << name << " at " << size;
        }
    }
    EXPECT_TRUE(KTIcons::Get("nonsense").isNull());
}

TEST(Icons, PicturesFollowTheScreen) {
    const QPixmap logo = KTIcons::Picture("logo", QSize(201, 105), 2);
    EXPECT_EQ(logo.size(), QSize(402, 210));
    EXPECT_EQ(logo.deviceIndependentSize(), QSizeF(201, 105));
    EXPECT_GT(Covered(logo), 0.1);
}

}  // namespace
