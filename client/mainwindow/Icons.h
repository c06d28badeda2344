// The program's own pictures by name: drawn as SVG, so crisp at any scale.
#pragma once

#include <QIcon>
#include <QString>

namespace client {

QString IconPath(const char* name);  // in the resources
QIcon IconNamed(const char* name);   // empty when there is none of that name

}  // namespace client
