// The about box.
#pragma once

class QString;
class QWidget;

namespace client {

QString AboutText();
void ShowAbout(QWidget* parent);

}  // namespace client
