// The panels that load and save job files, and the messages they answer with: a save panel with
// "name" (string) and "directory" (entry_ref), a load panel with "refs"; a cancelled one with
// '_CNC' and "old_what", the code it would have answered with.
#pragma once

#include <optional>
#include <string>

#include "kit/message/BMessage.h"

class BHandler;
class QWidget;

namespace KTFilePanels {

// Where a panel opens: in the folder of `lastPath` with its leaf as the proposed name, or, without
// one, in `folder` with `name`.
struct Place {
    std::string lastPath, folder, name;
};

QWidget* OpenSave(QWidget* parent, const Place& place, uint32_t code, const BHandler* target);
QWidget* OpenLoad(QWidget* parent, const Place& place, uint32_t code, const BHandler* target);

// The file that an answer names; nothing when it names none.
std::optional<std::string> SavePath(const BMessage& answer);
std::optional<std::string> LoadPath(const BMessage& answer);

}  // namespace KTFilePanels
