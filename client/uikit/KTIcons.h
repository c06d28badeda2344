// The program's own icons: drawn for both light and dark windows, sharp at 16, 24, 32 and 48
// pixels.
//
//   tools:  quickbackup backup restore compare jobqueue reports status
//   rows:   volume folder file link tower backup-full backup-incremental backup-differential
//   else:   velmora-backup (the program), logo (a picture of 201 × 105)
//
// Main thread.
#pragma once

#include <QIcon>
#include <QPixmap>
#include <QSize>

namespace KTIcons {

// An empty icon for a name that is none of these.
QIcon Get(const char* name);
// The same as a picture of `size` for a screen with `ratio` pixels to the unit.
QPixmap Picture(const char* name, QSize size, qreal ratio = 1);

}  // namespace KTIcons
