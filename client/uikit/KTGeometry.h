// Rectangles as settings keep them (right and bottom are the last pixel's place) and as Qt has
// them.
#pragma once

#include <QRect>
#include <QWidget>

#include "kit/message/Types.h"

namespace KTGeometry {

// Anything not finite or beyond what a screen can have is cut off: rectangles come from files.
QRect FromRect(const BRect& rect);
BRect ToRect(const QRect& rect);

// A place for `window` (frame included) that lies on a screen with at least its title bar in reach,
// as near as possible to `wanted`.
QPoint Reachable(const QWidget* window, QPoint wanted);

// The place of `window` as offset from the left-top corner of `parent`'s window, with its size.
BRect RelativeTo(const QWidget* window, const QWidget* parent);
// Moves a window, before it is shown, to a place kept by RelativeTo.
void PlaceRelativeTo(QWidget* window, const QWidget* parent, const BRect& offset);
// Moves a window, before it is shown, over the middle of `parent`'s window.
void PlaceOver(QWidget* window, const QWidget* parent);

}  // namespace KTGeometry
